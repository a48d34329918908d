#include "util/literal_prefix.h"

namespace velmox {

namespace {

constexpr CharSet kSpecial("*.+?|(){}[]^$");
// What can follow a character without a say in how often that character occurs.
constexpr CharSet kNeutral(".[");

bool isWordByte(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c & 0x80) != 0;
}

void dropLastCharacter(Str &text)
{
    while (!text.empty() && (text.back() & 0xC0) == 0x80) {
        text.pop_back();
    }
    if (!text.empty()) {
        text.pop_back();
    }
}

} // namespace

Str literalPrefix(const Str &pattern)
{
    Str prefix;
    if (pattern.find('|') != Str::npos) {
        return prefix;
    }
    std::string_view rest = pattern.c_str();
    while (!rest.empty() && !kSpecial.contains(rest.front())) {
        // A backslash takes the meaning from punctuation, but gives one to letters and digits.
        if (rest.front() == '\\') {
            if (rest.size() == 1 || isWordByte(rest[1])) {
                break;
            }
            rest.remove_prefix(1);
        }
        prefix.push_back(rest.front());
        rest.remove_prefix(1);
    }
    if (!rest.empty() && !kNeutral.contains(rest.front())) {
        dropLastCharacter(prefix);
    }
    return prefix;
}

} // namespace velmox
