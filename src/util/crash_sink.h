#pragma once

#include "util/str.h"

#include <cstdarg>
#include <cstddef>

namespace velmox {

/// Where a crash report goes, piece by piece. Nothing is added to what is written: no line end, no prefix.
///
/// A sink reports no failure: whoever writes to it is dying already.
class CrashSink
{
public:
    virtual ~CrashSink();

    virtual void write(const char *bytes, std::size_t length) = 0;

    void print(const char *text);
    void print(const Str &text) { write(text.data(), text.size()); }
    void format(const char *fmt, ...) VELMOX_PRINTF(2, 3);
};

} // namespace velmox
