#include "pipeline/input/config_xml_streaming_parser.h"
#include "pipeline/input/modinputs/input_document.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(InputDocument, HasItsForm)
{
    InputDocument document{{"here", "https://h:1", "a<b"}, u"C:\\db\\modinputs\\S", {}};
    document.stanzas["S://x\t\"y\""].set("key", "a\nb\rc & 'd'\x01\xff");
    EXPECT_EQ(document.toXml(), R"(<?xml version="1.0" encoding="UTF-8"?>
<input>
  <server_host>here</server_host>
  <server_uri>https://h:1</server_uri>
  <session_key>a&lt;b</session_key>
  <checkpoint_dir>C:\db\modinputs\S</checkpoint_dir>
  <configuration>
    <stanza name="S://x&#9;&quot;y&quot;">
      <param name="key">a
b&#13;c &amp; &apos;d&apos;\x01)"
                                "\xEF\xBF\xBD"
                                R"(</param>
    </stanza>
  </configuration>
</input>
)");
}

TEST(InputDocument, ReadsBackAsItWas)
{
    const char *texts[] = {"",
                           " ",
                           "a=b",
                           "<![CDATA[x]]>",
                           "&amp; &#65;",
                           "\"'<>&",
                           "line\r\nline\ttab",
                           "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
                           "hklm\\\\software\\\\.*",
                           "-->]]>"};
    InputDocument document{{"h", "u", "k"}, u"C:\\a & b", {}};
    for (const char *text : texts) {
        document.stanzas[Str::concat("S://", text)].set(Str::concat("key ", text), text);
    }
    const Str xml = document.toXml();
    ConfigXmlStreamingParser parser;
    parser.feed(xml.data(), xml.size());
    EXPECT_EQ(parser.serverHost(), "h");
    EXPECT_EQ(parser.serverUri(), "u");
    EXPECT_EQ(parser.sessionKey(), "k");
    EXPECT_EQ(parser.checkpointDirectory(), document.checkpoint_dir);
    ASSERT_EQ(parser.stanzas().size(), std::size(texts));
    for (const char *text : texts) {
        const PropertiesMap &stanza = parser.stanzas().at(Str::concat("S://", text));
        EXPECT_EQ(stanza.properties.size(), 1u);
        EXPECT_EQ(stanza.get(Str::concat("key ", text)), text);
    }
}

} // namespace
} // namespace velmox
