#include "bench/peers.h"
#include "pipeline/input/xml/xml_streaming_parser.h"
#include "tests/e2e/input_document.h"

#include <algorithm>
#include <cstring>
#include <expat.h>
#include <libxml/parser.h>
#include <stdexcept>

namespace velmox::bench {

namespace {

constexpr std::size_t kDocumentBytes = 1 << 20;
constexpr std::size_t kPieceBytes = 8192;
constexpr unsigned kDocuments = 20;

/// What a parser reports of a document, equal for all that read it right.
struct Counts
{
    std::size_t elements = 0;
    std::size_t ends = 0;
    std::size_t attributes = 0;
    std::size_t attributeBytes = 0;
    std::size_t textBytes = 0;

    bool operator==(const Counts &) const = default;
};

/// Calls `feed(bytes, length, isLast)` for each piece.
template <class Feed>
void feedInPieces(const Str &document, Feed feed)
{
    for (std::size_t at = 0; at < document.size(); at += kPieceBytes) {
        const std::size_t length = std::min(kPieceBytes, document.size() - at);
        feed(document.data() + at, length, at + length == document.size());
    }
}

class CountingParser : public XmlStreamingParser
{
public:
    explicit CountingParser(Counts &counts) : counts_(counts) {}
    void startElement(const Str &) override { ++counts_.elements; }
    void endElement() override { ++counts_.ends; }
    void attributeName(const Str &) override { ++counts_.attributes; }
    void attributeValue(const Str &value) override { counts_.attributeBytes += value.size(); }
    void characters(const Str &piece) override { counts_.textBytes += piece.size(); }

private:
    Counts &counts_;
};

Counts parseOwn(const Str &document)
{
    Counts counts;
    CountingParser parser(counts);
    feedInPieces(document, [&](const char *bytes, std::size_t length, bool) { parser.feed(bytes, length); });
    return counts;
}

Counts &countsOf(void *user)
{
    return *static_cast<Counts *>(user);
}

void XMLCALL expatStart(void *user, const XML_Char *, const XML_Char **attributes)
{
    Counts &counts = countsOf(user);
    ++counts.elements;
    for (; *attributes != nullptr; attributes += 2) {
        ++counts.attributes;
        counts.attributeBytes += std::strlen(attributes[1]);
    }
}

Counts parseByExpat(const Str &document)
{
    Counts counts;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &counts);
    XML_SetElementHandler(parser, expatStart, [](void *user, const XML_Char *) { ++countsOf(user).ends; });
    XML_SetCharacterDataHandler(parser, [](void *user, const XML_Char *, int length) {
        countsOf(user).textBytes += static_cast<std::size_t>(length);
    });
    feedInPieces(document, [&](const char *bytes, std::size_t length, bool isLast) {
        XML_Parse(parser, bytes, static_cast<int>(length), isLast);
    });
    XML_ParserFree(parser);
    return counts;
}

/// An attribute is five pointers: its names, its value's beginning and its end.
void libxmlStart(void *user, const xmlChar *, const xmlChar *, const xmlChar *, int, const xmlChar **,
                 int attributeCount, int, const xmlChar **attributes)
{
    Counts &counts = countsOf(user);
    ++counts.elements;
    for (int i = 0; i < attributeCount; ++i) {
        ++counts.attributes;
        counts.attributeBytes += static_cast<std::size_t>(attributes[5 * i + 4] - attributes[5 * i + 3]);
    }
}

Counts parseByLibxml(const Str &document)
{
    Counts counts;
    xmlSAXHandler handler = {};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = libxmlStart;
    handler.endElementNs = [](void *user, const xmlChar *, const xmlChar *, const xmlChar *) {
        ++countsOf(user).ends;
    };
    handler.characters = [](void *user, const xmlChar *, int length) {
        countsOf(user).textBytes += static_cast<std::size_t>(length);
    };
    xmlParserCtxtPtr parser = xmlCreatePushParserCtxt(&handler, &counts, nullptr, 0, nullptr);
    feedInPieces(document, [&](const char *bytes, std::size_t length, bool isLast) {
        xmlParseChunk(parser, bytes, static_cast<int>(length), isLast);
    });
    xmlFreeParserCtxt(parser);
    return counts;
}

Str makeDocument(const Str &description)
{
    e2e::InputDocument input;
    for (unsigned i = 0; i * 300 < kDocumentBytes; ++i) {
        input.stanza(Str::fromFormat("WinRegMon://bench%u", i),
                     {{"proc", ".*"},
                      {"hive", Str::fromFormat("HKLM\\\\Software\\\\Watched%u\\\\.*", i)},
                      {"type", "set|create|delete|rename"},
                      {"description", description}});
    }
    const Str text = input.checkpointDir("C:\\velmox").text();
    // The parsers do not report the declaration alike.
    return text.substr(text.find("?>") + 2);
}

using Parse = Counts (*)(const Str &document);

double secondsFor(Parse parse, const Str &document)
{
    return secondsOf([&] {
        for (unsigned i = 0; i < kDocuments; ++i) {
            parse(document);
        }
    });
}

/// Adds a round of a document to the figures of the two peers.
void compare(const Str &document, Figure &expat, Figure &libxml)
{
    const Counts counts = parseOwn(document);
    if (counts != parseByExpat(document) || counts != parseByLibxml(document)) {
        throw std::runtime_error("the parsers do not report the same document");
    }
    const double own = secondsFor(parseOwn, document);
    const double rate = static_cast<double>(kDocuments * document.size()) / own / 1e6;
    expat.add(secondsFor(parseByExpat, document) / own, rate);
    libxml.add(secondsFor(parseByLibxml, document) / own, rate);
}

} // namespace

Figures measureXml(unsigned rounds)
{
    const Str plain = makeDocument("what the keys of this program are there for");
    const Str references = makeDocument("&lt;keys&gt; of A &amp; B, &quot;there&#34; for &#x434;");
    Figures figures;
    for (const char *const what :
         {"XML: input document of 1 MB in pieces of 8 KiB", "the same with references"}) {
        figures.emplace_back(what, "expat", Goal(), "MB/s");
        figures.emplace_back(what, "push parser of libxml2", Goal(), "MB/s");
    }
    for (unsigned round = 0; round < rounds; ++round) {
        compare(plain, figures[0], figures[1]);
        compare(references, figures[2], figures[3]);
    }
    return figures;
}

} // namespace velmox::bench
