#include "pipeline/input/modinputs/input_document.h"

#include "util/wide_str.h"

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
    switch (byte) {
    case '&':
        out << "&amp;";
        return;
    case '<':
        out << "&lt;";
        return;
    case '>':
        out << "&gt;";
        return;
    case '"':
        out << "&quot;";
        return;
    case '\'':
        out << "&apos;";
        return;
    default:
        break;
    }
    const auto value = static_cast<unsigned char>(byte);
    if (needsReference(byte, place)) {
        out.appendFormat("&#%d;", value);
    } else if (value < 0x20 && byte != '\t' && byte != '\n') {
        // XML has no way to say these; they stand as in the events that come back.
        out.appendFormat("\\x%02X", value);
    } else {
        out << byte;
    }
}

/// Ill-formed UTF-8 is replaced, for a strict reader would refuse the whole document.
Str wellFormed(const Str &text)
{
    return Str::isValidUtf8(text.data(), text.size()) ? text : Str::fromUtf16(WideStr::fromUtf8(text));
}

Str escaped(const Str &text, Place place)
{
    Str out;
    for (const char byte : wellFormed(text)) {
        appendEscaped(out, byte, place);
    }
    return out;
}

void appendElement(Str &out, const char *name, const Str &text)
{
    out << "  <" << name << '>' << escaped(text, Place::Text) << "</" << name << ">\n";
}

void appendStanza(Str &out, const Str &name, const PropertiesMap &stanza)
{
    out << "    <stanza name=\"" << escaped(name, Place::Attribute) << "\">\n";
    for (const auto &[key, property] : stanza.properties) {
        out << "      <param name=\"" << escaped(key, Place::Attribute) << "\">"
            << escaped(property.value, Place::Text) << "</param>\n";
    }
    out << "    </stanza>\n";
}

} // namespace

Str InputDocument::toXml() const
{
    Str xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<input>\n";
    appendElement(xml, "server_host", server.server_host);
    appendElement(xml, "server_uri", server.server_uri);
    appendElement(xml, "session_key", server.session_key);
    appendElement(xml, "checkpoint_dir", checkpoint_dir.toStr());
    xml << "  <configuration>\n";
    for (const auto &[name, stanza] : stanzas) {
        appendStanza(xml, name, stanza);
    }
    xml << "  </configuration>\n</input>\n";
    return xml;
}

} // namespace velmox
