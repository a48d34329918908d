#include "pipeline/input/modinputs/introspect_xml_streaming_parser.h"
#include "pipeline/input/modinputs/line_splitter.h"
#include "pipeline/input/modinputs/script_validation_xml_streaming_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using IntrospectParser = ModularInputs::IntrospectXmlStreamingParser;

template <class Parser>
const Parser &fed(Parser &&parser, std::string_view xml)
{
    for (const char &byte : xml) {
        parser.feed(&byte, 1);
    }
    return parser;
}

TEST(IntrospectXmlStreamingParser, TakesTextsAtTheirPaths)
{
    const Introspection result = fed(IntrospectParser(), R"(<?xml version="1.0"?><!DOCTYPE scheme>
<scheme>
  <title>A &amp; B</title><description><![CDATA[ <raw>]]></description><script/><streaming_mode>
  </streaming_mode>
  <use_single_instance>
    true
  </use_single_instance>
  <endpoint> <mode>x</mode>
    <args>
      <arg name="one" title="an attribute"><title> One</title><data_type>&#9;number </data_type>
        <list_delimiter> </list_delimiter></arg>
      <arg><title>nameless</title></arg>
      <other name="no"><title>not an arg</title></other>
      <arg name="two"><deep><title>too deep</title></deep></arg>
    </args>
  </endpoint>
</scheme></scheme>)")
                                     .result();
    EXPECT_TRUE(result.found);
    EXPECT_THAT(result.scheme, ElementsAre(Pair("description", " <raw>"), Pair("title", "A & B"),
                                           Pair("use_single_instance", "true")));
    EXPECT_THAT(result.args,
                ElementsAre(Pair("one", ElementsAre(Pair("data_type", "number"), Pair("list_delimiter", " "),
                                                    Pair("title", " One"))),
                            Pair("two", IsEmpty())));
    for (const char *text : {"", "usage: me [options]\n", "<html><scheme><title>x</title></scheme></html>",
                             "</></scheme></args>", "<schemes><title>x</title></schemes>"}) {
        const Introspection other = fed(IntrospectParser(), text).result();
        EXPECT_FALSE(other.found) << text;
        EXPECT_THAT(other.scheme, IsEmpty()) << text;
    }
}

TEST(ScriptValidationXmlStreamingParser, TakesTheFirstMessage)
{
    const std::pair<const char *, const char *> rows[] = {
        {"<?xml version=\"1.0\"?>\n<error>\n <message> no &lt;host&gt;\n</message>\n</error>", "no <host>"},
        {"<error><code>3</code><message>a</message><message>b</message></error>", "a"},
        {"<error><message/><message>b</message></error>", "b"},
        {"<message>not in an error</message>", ""},
        {"plain text", ""},
    };
    for (const auto &[answer, message] : rows) {
        EXPECT_EQ(fed(ScriptValidationXmlStreamingParser(), answer).message(), message) << answer;
    }
}

TEST(LineSplitter, HandsOnLinesWhateverThePieces)
{
    const Str longLine(LineSplitter::kLongestLine, 'x');
    const Str text = Str::fromFormat("one\r\n\n%s\n%s%stwo", longLine.c_str(), longLine.c_str(), "y\n");
    for (const std::size_t pieceSize : {1, 7, 100000}) {
        StrVector lines;
        LineSplitter splitter([&lines](const Str &line) { lines.push_back(line); });
        for (std::size_t at = 0; at < text.size(); at += pieceSize) {
            splitter.feed(text.view().substr(at, pieceSize));
        }
        splitter.finish();
        EXPECT_THAT(lines, ElementsAre("one", "", longLine, longLine, "y", "two")) << pieceSize;
    }
}

} // namespace
} // namespace velmox
