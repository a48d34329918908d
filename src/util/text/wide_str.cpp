#include "util/text/wide_str.h"

#include "util/text/platform.h"

namespace velmox {

void WideStr::appendUtf8(const char *text, std::size_t length)
{
    if (length == 0) {
        return;
    }
    reserve(size() + length);
    platform::appendUtf8AsUtf16(text, length, *this);
}

void WideStr::appendUtf8(const char *cstr)
{
    appendUtf8(cstr, std::char_traits<char>::length(cstr));
}

WideStr WideStr::fromUtf8(std::string_view text)
{
    WideStr result;
    result.appendUtf8(text.data(), text.size());
    return result;
}

} // namespace velmox
