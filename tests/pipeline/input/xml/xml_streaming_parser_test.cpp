#include "pipeline/input/xml/xml_streaming_parser.h"

namespace velmox {
namespace {

/// Writes each call down; neighbouring pieces of text are joined.
class Recorder : public XmlStreamingParser
{
public:
    explicit Recorder(std::string nulMark = {}) : nulMark_(std::move(nulMark)) {}

    void startElement(const Str &name) override { note("start", name); }
    void endElement() override { note("end"); }
    void attributeName(const Str &name) override { note("name", name); }
    void attributeValue(const Str &value) override { note("value", value); }
    void attributeWithoutValue() override { note("novalue"); }
    void characters(const Str &text) override
    {
        if (!inPieces_) {
            note("text()");
        }
        inPieces_ = true;
        calls.insert(calls.size() - 1, text.view());
    }
    void charactersBegin() override { note("["); }
    void charactersEnd() override { note("]"); }
    void cdataBegin() override { note("cdata{"); }
    void cdataEnd() override { note("}cdata"); }
    void commentBegin() override { note("comment{"); }
    void commentEnd() override { note("}comment"); }
    void nulCharacter(Str &soFar) override { soFar += nulMark_; }

    using XmlStreamingParser::position;
    using XmlStreamingParser::tokenEnd;
    using XmlStreamingParser::tokenStart;
    std::string calls;

private:
    void note(const char *call)
    {
        inPieces_ = false;
        calls += calls.empty() ? "" : " ";
        calls += call;
    }
    void note(const char *call, const Str &text)
    {
        note(call);
        calls.append("(").append(text.view()).append(")");
    }

    std::string nulMark_;
    bool inPieces_ = false;
};

std::string parse(std::string_view document, std::string nulMark = {})
{
    Recorder recorder(std::move(nulMark));
    recorder.feed(document.data(), document.size());
    return recorder.calls;
}

struct Case
{
    std::string_view document;
    std::string_view calls;
};

const Case kCases[] = {
    // Elements and text.
    {"<a>x</a>", "start(a) [ text(x) ] end"},
    {"<a/>", "start(a) end"},
    {"</x >", "start(/x)"},
    {"<>x", "start() [ text(x)"},
    {"<?xml version=\"1.0\"?><!DOCTYPE a>", "start(?xml) name(version) value(1.0) name(?) novalue "
                                            "start(!DOCTYPE) name(a) novalue"},
    // Attributes.
    {"<a b='1\"' c=\"2'\"/>", "start(a) name(b) value(1\") name(c) value(2') end"},
    {"<a b=1 c=2/>", "start(a) name(b) value(1) name(c) value(2) end"},
    {"<a b \n = '1'>", "start(a) name(b) value(1)"},
    {"<a /b>", "start(a) name(/b) novalue"},
    {"<a &lt;='&amp&quot;'>", "start(a) name(<) value(&amp\")"},
    {"<a\0b\0 c='x\0y'>"sv, "start(a) name(b) novalue name(c) value(xy)"},
    // Comments.
    {"x<!-- <a> & -- - --->y", "[ text(x) comment{ }comment text(y)"},
    // Character data.
    {"<![CDATA[<a>&lt;]]></b>", "cdata{ [ text(<a>&lt;) }cdata ] end"},
    {"<![CDATA[x]]]>y", "cdata{ [ text(x]) }cdata text(y)"},
    {"<![CDATA[a]]b]>c\0d]]>"sv, "cdata{ [ text(a]]b]>cd) }cdata"},
    // Entities in text.
    {"&amp;&lt;&GT;&Quot;&apos;|", "[ text(&<>\"'|)"},
    {"&#65;&#x41;&#X6a;&#00000000000065;|", "[ text(AAjA|)"},
    {"&#000000000000065;&#0000000000000065;|", "[ text(A&#0000000000000065;|)"},
    {"&#xE9;&#x20AC;&#x10FFFF;&#x110000;|", "[ text(\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF&#x110000;|)"},
    {"&;&#;&#x;&#xg;&#6a;&#-1;&a;&lo;&copy;&nbsp;|", "[ text(&;&#;&#x;&#xg;&#6a;&#-1;&a;&lo;&copy;&nbsp;|)"},
    {"a & b &am&amp;&lt<a/>", "[ text(a & b &am&&lt) ] start(a) end"},
    {"a\0b&#0;c&#x0;|"sv, "[ text(abc|)"},
};

TEST(XmlStreamingParser, CallsWhatItMeets)
{
    for (const Case &c : kCases) {
        EXPECT_EQ(parse(c.document), c.calls) << c.document;
    }
    EXPECT_EQ(parse("a\0b<c d='&#0;x'/><![CDATA[\0y]]>"sv, "?"),
              "[ text(a?b) ] start(c) name(d) value(?x) end cdata{ [ text(?y) }cdata");
}

TEST(XmlStreamingParser, TextDoesNotWaitForItsEnd)
{
    Recorder recorder;
    const auto fed = [&recorder](std::string_view bytes) {
        recorder.feed(bytes.data(), bytes.size());
        return recorder.calls;
    };
    EXPECT_EQ(fed("ab"), "[ text(ab)");
    EXPECT_EQ(fed("&a"), "[ text(ab)");
    EXPECT_EQ(fed("mp;c&"), "[ text(ab&c)");
    EXPECT_EQ(fed("gt"), "[ text(ab&c)");
    EXPECT_EQ(fed("z"), "[ text(ab&c&gtz)");
    EXPECT_EQ(recorder.tokenEnd(), recorder.position());
    fed("<name a='1'>");
    EXPECT_EQ(recorder.tokenStart(), 12u);
    EXPECT_EQ(recorder.tokenEnd(), 17u);
}

TEST(XmlStreamingParser, TokenOverTheLimitVanishes)
{
    for (const std::string &lead : {"<a x"s, "<a x=\""s, "<a x="s}) {
        for (const std::size_t excess : {0u, 1u}) {
            Recorder recorder;
            recorder.feed(lead.data(), lead.size());
            const std::size_t standing = lead.back() == '=' ? 0 : 1;
            const std::string filler(recorder.maxPendingBytes() + excess - standing, 'y');
            for (std::size_t at = 0; at < filler.size(); at += 8192) {
                recorder.feed(filler.data() + at, std::min<std::size_t>(8192, filler.size() - at));
            }
            EXPECT_EQ(recorder.calls.find("yyy"), std::string::npos) << lead;
            recorder.feed("z\" >", 4);
            EXPECT_EQ(recorder.calls.find("yyy") != std::string::npos, excess == 0) << lead;
            EXPECT_NE(recorder.calls.find("z"), std::string::npos) << lead;
        }
    }
}

} // namespace
} // namespace velmox
