#pragma once

#include "util/text/basic_text.h"

#include <vector>

namespace velmox {

/// Owned UTF-16 text, for the operating system's interfaces alone; order and equality are by 16-bit units.
class WideStr : public BasicText<WideStr, char16_t>
{
public:
    using BasicText::BasicText;

    /// Appends UTF-8 as UTF-16; ill-formed bytes become what the system conversion substitutes. `length`
    /// counts bytes.
    void appendUtf8(const char *text, std::size_t length);
    void appendUtf8(const char *cstr);
    static WideStr fromUtf8(std::string_view text);
};

using WideStrVector = std::vector<WideStr>;

} // namespace velmox
