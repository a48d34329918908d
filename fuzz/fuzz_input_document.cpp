#include "fuzz/fuzz_target.h"
#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "pipeline/input/modinputs/input_document.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/text/wide_str.h"

#include <libxml/parser.h>

namespace velmox::fuzz {
namespace {

Str described(const ConfigXmlStreamingParser &parser)
{
    Str text;
    text << parser.serverHost() << '\n' << parser.serverUri() << '\n' << parser.sessionKey() << '\n';
    text << parser.checkpointDirectory().toStr() << '\n';
    for (const auto &[name, stanza] : parser.stanzas()) {
        text << '[' << name << "]\n";
        for (const auto &[key, property] : stanza.properties) {
            text << key << '=' << property.value << '\n';
        }
    }
    return text;
}

/// What a document says, or why it is refused.
Str readInPieces(std::string_view document, unsigned seed)
{
    ConfigXmlStreamingParser parser;
    try {
        inPieces(document, seed, [&](std::string_view piece) { parser.feed(piece.data(), piece.size()); });
    } catch (const ModularInputsException &exception) {
        return exception.what();
    }
    return described(parser);
}

/// What the escaping leaves of a text: control bytes show as an escape, ill-formed bytes as U+FFFD.
Str kept(std::string_view text)
{
    Str out;
    for (const char byte : Str::fromUtf16(WideStr::fromUtf8(text))) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 32 && byte != '\t' && byte != '\n' && byte != '\r') {
            out.appendFormat("\\x%02X", value);
        } else {
            out << byte;
        }
    }
    return out;
}

void checkStrictReader(const Str &xml)
{
    // U+FFFE and U+FFFF are well-formed UTF-8 that XML has no place for.
    if (xml.contains("\xEF\xBF\xBE") || xml.contains("\xEF\xBF\xBF")) {
        return;
    }
    xmlDoc *document = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                                     XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET);
    require(document != nullptr, "a strict reader takes the document");
    xmlFreeDoc(document);
}

void checkWrittenDocument(Input input)
{
    InputDocument document;
    document.server = {Str(input.line()), Str(input.line()), Str(input.line())};
    document.checkpoint_dir = Pathname::fromUtf8(input.line());
    std::map<Str, std::map<Str, Str>> stanzas;
    while (!input.empty()) {
        const Str name(input.line());
        const Str key(input.line());
        const Str value(input.line());
        document.stanzas[name].set(key, value);
    }
    for (const auto &[name, stanza] : document.stanzas) {
        for (const auto &[key, property] : stanza.properties) {
            // A param without a name is left out, and of names that end up equal the last one counts.
            if (!key.empty()) {
                stanzas[kept(name)][kept(key)] = kept(property.value);
            }
        }
    }

    const Str xml = document.toXml();
    checkStrictReader(xml);
    ConfigXmlStreamingParser parser;
    parser.feed(xml.data(), xml.size());
    require(parser.serverHost() == kept(document.server.server_host), "the host comes back");
    require(parser.serverUri() == kept(document.server.server_uri), "the address comes back");
    require(parser.sessionKey() == kept(document.server.session_key), "the key comes back");
    std::map<Str, std::map<Str, Str>> read;
    for (const auto &[name, stanza] : parser.stanzas()) {
        for (const auto &[key, property] : stanza.properties) {
            read[name][key] = property.value;
        }
    }
    require(read == stanzas, "the stanzas come back");
}

} // namespace

/// Any split of an input document reads the same, and a document that was written reads back.
VELMOX_FUZZ_TARGET(input_document)
{
    Input input(bytes);
    if (input.choice(2) == 0) {
        checkWrittenDocument(input);
        return;
    }
    const unsigned seed = input.choice(256) * 2654435761u + 1;
    require(readInPieces(input.rest(), seed) == readInPieces(input.rest(), 0), "the same for any split");
}

} // namespace velmox::fuzz
