#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"

namespace velmox {
namespace {

/// The stanzas as text: "[name] key=value key=value".
std::string stanzasOf(const ConfigXmlStreamingParser &parser)
{
    std::string text;
    for (const auto &[name, stanza] : parser.stanzas()) {
        text.append(text.empty() ? "[" : " [").append(name.view()).append("]");
        for (const auto &[key, value] : stanza.properties) {
            text.append(" ").append(key.view()).append("=").append(value.value.view());
        }
    }
    return text;
}

void feed(ConfigXmlStreamingParser &parser, std::string_view document)
{
    parser.feed(document.data(), document.size());
}

/// The stanzas of a document, or what is wrong with it.
std::string read(std::string_view document)
{
    try {
        ConfigXmlStreamingParser parser;
        feed(parser, document);
        return stanzasOf(parser);
    } catch (const ModularInputsException &exception) {
        return exception.what();
    }
}

constexpr std::string_view kDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<input>
  <server_host>myhost</server_host>
  <server_uri>https://127.0.0.1:8089</server_uri>
  <session_key>a&amp;b</session_key>
  <checkpoint_dir>C:\d&#233;p\x</checkpoint_dir>
  <!-- none of <this> -->
  <configuration>
    <stanza name="WinRegMon://b" other="x">
      <param name="hive">\\REGISTRY\\MACHINE\\.*</param>
      <param other='1' name='disabled'>0</param>
      <param name="hive"><![CDATA[<last>]]>&#65;&#x41;</param>
    </stanza>
    <stanza name="WinRegMon://a&amp;b"></stanza>
  </configuration>
</input>
)";

TEST(ConfigXmlStreamingParser, ReadsTheWholeVocabularyInAnyPieces)
{
    for (std::size_t size : {kDocument.size(), std::size_t{1}, std::size_t{13}}) {
        ConfigXmlStreamingParser parser;
        for (std::size_t at = 0; at < kDocument.size(); at += size) {
            feed(parser, kDocument.substr(at, size));
        }
        EXPECT_EQ(parser.serverHost(), "myhost");
        EXPECT_EQ(parser.serverUri(), "https://127.0.0.1:8089");
        EXPECT_EQ(parser.sessionKey(), "a&b");
        EXPECT_EQ(parser.checkpointDirectory(), u"C:\\d\u00E9p\\x");
        EXPECT_EQ(stanzasOf(parser), "[WinRegMon://a&b] [WinRegMon://b] disabled=0 hive=<last>AA");
    }
}

TEST(ConfigXmlStreamingParser, TakesWhatStandsInItsPlaceAndRefusesUnknownElements)
{
    const std::string input = "<input><configuration><stanza name='s'/></configuration></input>";
    const auto refused = [](const std::string &name, const std::string &path) {
        return "Unexpected entity \"" + name + "\" found under path \"\\input\\" + path +
               "\" in the XML configuration input.";
    };
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"<other>" + input + "</other>", ""},
        {"<other><a/></other>" + input, "[s]"},
        {"<input/>" + input, "[s]"},
        {input.substr(0, input.find("</configuration>")), "[s]"},
        {"<input><foo/></input>", refused("foo", "foo")},
        {"<input><server_host></server_host >", refused("/server_host", "server_host\\/server_host")},
    };
    for (const auto &[document, expected] : rows) {
        EXPECT_EQ(read(document), expected) << document;
    }
    const std::pair<const char *, std::string> bodies[] = {
        {"<stanza><param name='k'>v</param></stanza>", ""},
        {"<stanza name='s'><param name='k'>u</param><param>v</param><param name=''>w</param></stanza>",
         "[s] k=u"},
        {"<stanza name='s'><param name='k'/></stanza>", "[s] k="},
        {"<stanza name='s'><param name='k'>1</param></stanza><stanza><param name='lost'>x</param></stanza>"
         "<stanza name='s'><param name='l'>2</param></stanza>",
         "[s] k=1 l=2"},
        {"<stanza name='s'><param_list name='l'>",
         refused("param_list", "configuration\\stanza\\param_list")},
    };
    for (const auto &[body, expected] : bodies) {
        EXPECT_EQ(read("<input><configuration>" + std::string(body)), expected) << body;
    }
}

#ifdef _WIN32
constexpr char kNowhere[] = "NUL";
#else
constexpr char kNowhere[] = "/dev/null";
#endif

TEST(ReadXmlFromStdin, ReadsToTheEndAndThrowsWhatEndsItBefore)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::tmpfile(), std::fclose);
    std::fputs((std::string(8191, ' ') + std::string(kDocument)).c_str(), file.get());
    std::rewind(file.get());
    ConfigXmlStreamingParser parser;
    readXmlFromStdin(parser, file.get());
    EXPECT_EQ(parser.stanzas().size(), 2u);
    // A stream that can only be written.
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> writable(std::fopen(kNowhere, "w"), std::fclose);
    try {
        readXmlFromStdin(parser, writable.get());
        FAIL() << "no exception";
    } catch (const ModularInputsException &exception) {
        EXPECT_TRUE(exception.message().startsWith("Error reading XML configuration input from stdin: "));
    }
}

} // namespace
} // namespace velmox
