#pragma once

#include "util/text/str.h"

#include <functional>
#include <string_view>

namespace velmox {

/// Cuts text that comes in pieces into lines and hands each on without its line end. A line that is longer
/// than `kLongestLine` bytes is handed on in parts, so that nothing grows without limit.
class LineSplitter
{
public:
    static constexpr std::size_t kLongestLine = 8192;

    explicit LineSplitter(std::function<void(const Str &)> onLine) : onLine_(std::move(onLine)) {}

    void feed(std::string_view piece);
    /// Hands on what stands behind the last line end.
    void finish();

private:
    void handOn();

    std::function<void(const Str &)> onLine_;
    Str line_;
};

} // namespace velmox
