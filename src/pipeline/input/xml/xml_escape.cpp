#include "pipeline/input/xml/xml_escape.h"

#include "util/text/wide_str.h"

namespace velmox {

namespace {

enum class Place
{
    Text,
    Attribute
};

/// A reader may turn a carriage return into a line feed, and each blank of an attribute into a space, unless
/// they are references.
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
    const bool isWellFormed = Str::isValidUtf8(text.data(), text.size());
    Str out;
    for (const char byte : isWellFormed ? text : Str::fromUtf16(WideStr::fromUtf8(text))) {
        appendEscaped(out, byte, place);
    }
    return out;
}

} // namespace

Str escapedXmlText(const Str &text)
{
    return escaped(text, Place::Text);
}

Str escapedXmlAttribute(const Str &text)
{
    return escaped(text, Place::Attribute);
}

} // namespace velmox
