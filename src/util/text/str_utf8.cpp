#include "util/text/code_point.h"

namespace velmox {

namespace {

/// The length of the well-formed character at the front, which is not ASCII; 0 when there is none.
std::size_t wellFormedLength(const unsigned char *text, std::size_t length)
{
    const std::size_t following = utf8ContinuationCount(text[0]);
    if (following == 0 || following >= length || !isUtf8Second(text[0], text[1])) {
        return 0;
    }
    for (std::size_t at = 2; at <= following; ++at) {
        if (!isUtf8Continuation(text[at])) {
            return 0;
        }
    }
    return following + 1;
}

int hexValue(char digit)
{
    return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
}

bool isEscape(std::string_view text)
{
    const CharSet &digits = CharSet::hexDigits();
    return text.size() >= 3 && text[0] == '%' && digits.contains(text[1]) && digits.contains(text[2]);
}

Str urlDecoded(std::string_view text)
{
    Str decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        if (isEscape(text)) {
            decoded += static_cast<char>(hexValue(text[1]) << 4 | hexValue(text[2]));
            text.remove_prefix(3);
        } else {
            decoded += text.front() == '+' ? ' ' : text.front();
            text.remove_prefix(1);
        }
    }
    return decoded;
}

} // namespace

bool Str::isValidUtf8(const char *text, std::size_t length)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    for (std::size_t at = 0; at < length;) {
        const std::size_t taken = bytes[at] < 0x80 ? 1 : wellFormedLength(bytes + at, length - at);
        if (taken == 0) {
            return false;
        }
        at += taken;
    }
    return true;
}

bool Str::urlDecode()
{
    if (findFirst(CharSet::urlTriggers(), 0, true) < 0) {
        return isValidUtf8(data(), size());
    }
    Str decoded = urlDecoded(view());
    if (!isValidUtf8(decoded.data(), decoded.size())) {
        return false;
    }
    swap(decoded);
    return true;
}

} // namespace velmox
