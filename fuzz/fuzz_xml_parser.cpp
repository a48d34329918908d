#include "fuzz/fuzz_target.h"
#include "pipeline/input/xml/xml_streaming_parser.h"

namespace velmox::fuzz {
namespace {

/// Notes the calls, with runs of text put together.
class Recorder : public XmlStreamingParser
{
public:
    const Str &calls() const { return calls_; }

    void startElement(const Str &name) override
    {
        require(tokenEnd() - tokenStart() == name.size() + 1, "where a tag stands");
        note('<', name);
        calls_ << '\n' << static_cast<unsigned long long>(tokenStart());
    }
    void endElement() override { note('/', ""); }
    void attributeName(const Str &name) override { note('@', name); }
    void attributeValue(const Str &value) override { note('=', value); }
    void attributeWithoutValue() override { note('!', ""); }
    void characters(const Str &text) override
    {
        require(inRun_, "text between its begin and end");
        calls_.append(text);
    }
    void charactersBegin() override
    {
        require(!inRun_, "no run of text within another");
        inRun_ = true;
        note('(', "");
    }
    void charactersEnd() override
    {
        require(inRun_, "the end of a run of text");
        inRun_ = false;
        note(')', "");
    }
    void cdataBegin() override { note('{', ""); }
    void cdataEnd() override { note('}', ""); }
    void commentBegin() override { note('#', ""); }
    void commentEnd() override { note('~', ""); }
    void nulCharacter(Str &soFar) override { soFar += '\1'; }

private:
    void note(char kind, const Str &text) { calls_ << '\n' << kind << text; }

    Str calls_;
    bool inRun_ = false;
};

Str callsInPieces(std::string_view document, unsigned seed)
{
    Recorder parser;
    inPieces(document, seed, [&](std::string_view piece) { parser.feed(piece.data(), piece.size()); });
    return parser.calls();
}

} // namespace

/// Any split of a document gives the same calls, at the same places.
VELMOX_FUZZ_TARGET(xml_parser)
{
    Input input(bytes);
    const unsigned seed = input.choice(256) * 2654435761u + 1;
    // The end closes what is open: text that may be the beginning of one is held back.
    const std::string document = std::string(input.rest()) + "]]>-->\"'> <end>";
    Recorder parser;
    parser.feed(document.data(), document.size());
    require(callsInPieces(document, seed) == parser.calls(), "the same calls for any split");
    require(callsInPieces(document, 0) == parser.calls(), "the same calls for single bytes");
}

} // namespace velmox::fuzz
