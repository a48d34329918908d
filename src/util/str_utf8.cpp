#include "util/str.h"

namespace velmox {

namespace {

/// What a lead byte demands: how many bytes follow, and the range of the first of them. The narrowed ranges
/// shut out overlong forms, surrogates and code points beyond U+10FFFF.
struct LeadRule
{
    unsigned char lastLead;
    unsigned char following;
    unsigned char low;
    unsigned char high;
};

constexpr LeadRule kLeadRules[] = {
    {0xDF, 1, 0x80, 0xBF}, {0xE0, 2, 0xA0, 0xBF}, {0xEC, 2, 0x80, 0xBF}, {0xED, 2, 0x80, 0x9F},
    {0xEF, 2, 0x80, 0xBF}, {0xF0, 3, 0x90, 0xBF}, {0xF3, 3, 0x80, 0xBF}, {0xF4, 3, 0x80, 0x8F},
};

/// The length of the well-formed character at the front, which is not ASCII; 0 when there is none.
std::size_t wellFormedLength(const unsigned char *text, std::size_t length)
{
    if (text[0] < 0xC2 || text[0] > 0xF4) {
        return 0;
    }
    const LeadRule *rule = kLeadRules;
    while (rule->lastLead < text[0]) {
        ++rule;
    }
    if (rule->following >= length || text[1] < rule->low || text[1] > rule->high) {
        return 0;
    }
    for (std::size_t at = 2; at <= rule->following; ++at) {
        if ((text[at] & 0xC0) != 0x80) {
            return 0;
        }
    }
    return rule->following + std::size_t{1};
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
