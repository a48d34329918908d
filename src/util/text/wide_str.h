#pragma once

#include "util/text/basic_text.h"
#include "util/text/platform.h"

#include <vector>

namespace velmox {

/// Owned UTF-16 text, for the operating system's interfaces alone; order and equality are by 16-bit units.
class WideStr : public BasicText<WideStr, char16_t>
{
public:
    using BasicText::BasicText;

    /// Appends UTF-8 as UTF-16; ill-formed bytes become what the system conversion substitutes. `length`
    /// counts bytes.
    void appendUtf8(const char *text, std::size_t length)
    {
        if (length != 0) {
            reserve(size() + length);
            platform::appendUtf8AsUtf16(text, length, *this);
        }
    }
    void appendUtf8(const char *cstr) { appendUtf8(cstr, std::char_traits<char>::length(cstr)); }
    static WideStr fromUtf8(std::string_view text)
    {
        WideStr result;
        result.appendUtf8(text.data(), text.size());
        return result;
    }
};

using WideStrVector = std::vector<WideStr>;

} // namespace velmox
