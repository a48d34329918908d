#include "pipeline/input/xml/xml_entity.h"

#include "util/text/char_set.h"
#include "util/text/code_point.h"
#include "util/text/wide_str.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace velmox {

namespace {

// Between `&` and `;`. The longest form needs nine; the rest is room for leading zeros.
constexpr std::size_t kLongestName = 16;
constexpr XmlEntity kPlainAmpersand{U'&', 1};
constexpr XmlEntity kCutEntity{0, 0};

/// The bytes that the names of the known forms are made of.
constexpr CharSet kNameBytes("abcdefglmopqstuABCDEFGLMOPQSTU#xX0123456789");

struct NamedEntity
{
    std::string_view name;
    char32_t codePoint;
};

constexpr NamedEntity kNamedEntities[] = {
    {"lt", U'<'}, {"gt", U'>'}, {"amp", U'&'}, {"quot", U'"'}, {"apos", U'\''},
};

/// False unless the whole of `digits` is a code point in that base. The longest name leaves no room for an
/// overflow.
bool parseCodePoint(std::string_view digits, int base, char32_t &out)
{
    std::uint64_t value = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stop != end || value > kLastCodePoint) {
        return false;
    }
    out = static_cast<char32_t>(value);
    return true;
}

bool parseReference(std::string_view name, char32_t &out)
{
    if (name.size() < 2 || name[0] != '#') {
        return false;
    }
    const bool hexadecimal = name[1] == 'x' || name[1] == 'X';
    return parseCodePoint(name.substr(hexadecimal ? 2 : 1), hexadecimal ? 16 : 10, out);
}

XmlEntity resolve(std::string_view name)
{
    const std::size_t length = name.size() + 2; // with `&` and `;`
    for (const NamedEntity &entity : kNamedEntities) {
        if (Str::compareCaseless(name.data(), name.size(), entity.name.data(), entity.name.size()) == 0) {
            return {entity.codePoint, length};
        }
    }
    char32_t codePoint = 0;
    return parseReference(name, codePoint) ? XmlEntity{codePoint, length} : kPlainAmpersand;
}

enum class Place
{
    Text,
    Attribute
};

/// A reader may turn a carriage return into a line feed, and each blank of an attribute into a space, unless
/// they are references (XML 1.0, 2.11 and 3.3.3).
bool needsReference(char byte, Place place)
{
    return byte == '\r' || (place == Place::Attribute && (byte == '\n' || byte == '\t'));
}

void appendEscaped(Str &out, char byte, Place place)
{
    const auto value = static_cast<unsigned char>(byte);
    if (const std::string_view entity = xmlEntityOf(byte); !entity.empty()) {
        out << entity;
    } else if (needsReference(byte, place)) {
        out.appendFormat("&#%d;", value);
    } else if (value < 0x20 && byte != '\t' && byte != '\n') {
        out.appendFormat("\\x%02X", value);
    } else {
        out << byte;
    }
}

Str escaped(const Str &text, Place place)
{
    // The way through UTF-16 and back puts U+FFFD for what is ill-formed, which most texts spare.
    const bool isWellFormed = Str::isValidUtf8(text.data(), text.size());
    Str out;
    for (const char byte : isWellFormed ? text : Str::fromUtf16(WideStr::fromUtf8(text))) {
        appendEscaped(out, byte, place);
    }
    return out;
}

} // namespace

XmlEntity readXmlEntity(std::string_view bytes, bool complete)
{
    constexpr std::size_t kBytesThatDecide = 1 + kLongestName + 1;
    const std::size_t end = std::min(bytes.size(), kBytesThatDecide);
    for (std::size_t at = 1; at < end; ++at) {
        if (bytes[at] == ';') {
            return resolve(bytes.substr(1, at - 1));
        }
        // Most plain ampersands, such as that of "a & b", are known by the next byte, and text needs not
        // wait for more.
        if (!kNameBytes.contains(bytes[at])) {
            return kPlainAmpersand;
        }
    }
    return complete || end == kBytesThatDecide ? kPlainAmpersand : kCutEntity;
}

Str escapedXmlText(const Str &text)
{
    return escaped(text, Place::Text);
}

Str escapedXmlAttribute(const Str &text)
{
    return escaped(text, Place::Attribute);
}

} // namespace velmox
