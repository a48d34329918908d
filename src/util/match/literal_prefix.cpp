#include "util/match/literal_prefix.h"

#include "util/text/ascii.h"
#include "util/text/code_point.h"

namespace velmox {

namespace {

constexpr CharSet kSpecial("*.+?|(){}[]^$");
// What can follow a character without a say in how often that character occurs.
constexpr CharSet kNeutral(".[");

/// Whether a backslash in front may give the byte a meaning, as it does to letters and digits; from
/// punctuation it takes the meaning.
bool gainsMeaning(char byte)
{
    return isAsciiAlphanumeric(byte) || (byte & 0x80) != 0;
}

void dropLastCharacter(Str &text)
{
    while (!text.empty() && isUtf8Continuation(static_cast<unsigned char>(text.back()))) {
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
        if (rest.front() == '\\') {
            if (rest.size() == 1 || gainsMeaning(rest[1])) {
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
