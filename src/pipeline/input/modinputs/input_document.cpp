#include "pipeline/input/modinputs/input_document.h"

#include "pipeline/input/xml/xml_escape.h"

namespace velmox {

namespace {

void appendElement(Str &out, const char *name, const Str &text)
{
    out << "  <" << name << '>' << escapedXmlText(text) << "</" << name << ">\n";
}

void appendStanza(Str &out, const Str &name, const PropertiesMap &stanza)
{
    out << "    <stanza name=\"" << escapedXmlAttribute(name) << "\">\n";
    for (const auto &[key, property] : stanza.properties) {
        out << "      <param name=\"" << escapedXmlAttribute(key) << "\">" << escapedXmlText(property.value)
            << "</param>\n";
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
