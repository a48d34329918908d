#pragma once

#include "util/text/str.h"

#include <cstddef>

namespace velmox {

/// Where a crash report goes, piece by piece. Nothing is added to what is written: no line end, no prefix.
///
/// A sink reports no failure and takes nothing from the heap: whoever writes to it is dying already.
class CrashSink
{
public:
    virtual ~CrashSink();

    virtual void write(const char *bytes, std::size_t length) = 0;

    void print(const char *text);
    void print(const Str &text) { write(text.data(), text.size()); }
    void print(const char16_t *text);
    /// Formats short text; what is beyond 1,023 bytes is cut.
    void format(const char *fmt, ...) VELMOX_PRINTF(2, 3);
};

/// A sink that keeps a report from growing without bounds: a write over 51,200 bytes is skipped with a word
/// about it, and after 524,288 bytes nothing more is taken.
class LimitedCrashSink : public CrashSink
{
public:
    static constexpr std::size_t kWriteLimit = 50 * 1024;
    static constexpr std::size_t kTotalLimit = 512 * 1024;

    void write(const char *bytes, std::size_t length) final;

private:
    virtual void put(const char *bytes, std::size_t length) = 0;
    void putText(const char *text);

    std::size_t total_ = 0;
    bool full_ = false;
};

} // namespace velmox
