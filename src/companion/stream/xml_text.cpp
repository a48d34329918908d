#include "companion/stream/xml_text.h"

#include "util/text/code_point.h"

#include <array>

namespace velmox {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kCarriageReturn = "&#13;";

constexpr std::array<bool, 256> makePlain()
{
    std::array<bool, 256> plain{};
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        plain[byte] = byte != '\r';
    }
    return plain;
}

constexpr std::array<bool, 256> kPlain = makePlain();

unsigned byteAt(std::string_view bytes, std::size_t at)
{
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

/// Length of the character at the front, which is not ASCII; 0 when there is none that XML knows.
std::size_t characterLength(std::string_view bytes)
{
    const unsigned lead = byteAt(bytes, 0);
    const unsigned following = utf8ContinuationCount(lead);
    if (following == 0 || !isUtf8Second(lead, byteAt(bytes, 1))) {
        return 0;
    }
    for (unsigned at = 2; at <= following; ++at) {
        if (!isUtf8Continuation(byteAt(bytes, at))) {
            return 0;
        }
    }
    const bool isNonCharacter = bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF");
    return isNonCharacter ? 0 : following + 1;
}

/// Bytes to pass over where no character is: the three of a non-character, else one.
std::size_t wrongLength(std::string_view bytes)
{
    return bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF") ? 3 : 1;
}

} // namespace

void appendXmlText(std::string_view bytes, std::string &out)
{
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t begin = at;
        while (at < bytes.size() && kPlain[static_cast<unsigned char>(bytes[at])]) {
            ++at;
        }
        out.append(bytes, begin, at - begin);
        if (at == bytes.size()) {
            return;
        }
        const std::string_view rest = bytes.substr(at);
        if (rest.front() == '\r') {
            out.append(byteAt(rest, 1) == '\n' ? std::string_view() : kCarriageReturn);
            ++at;
        } else if (const std::size_t length = characterLength(rest); length > 0) {
            out.append(rest, 0, length);
            at += length;
        } else {
            out.append(kReplacement);
            at += wrongLength(rest);
        }
    }
}

} // namespace velmox
