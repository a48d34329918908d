#include "pipeline/input/config_xml_streaming_parser.h"
#include "pipeline/input/modular_inputs_exception.h"
#include "pipeline/input/xml_stdin.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>

namespace velmox {
namespace {

struct CloseFile
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// The stanzas as text: "[name] key=value key=value".
std::string stanzasOf(const ConfigXmlStreamingParser &parser)
{
    std::ostringstream text;
    const char *separator = "";
    for (const auto &[name, stanza] : parser.stanzas()) {
        text << separator << '[' << name.view() << ']';
        for (const auto &[key, value] : stanza.properties) {
            text << ' ' << key.view() << '=' << value.value.view();
        }
        separator = " ";
    }
    return text.str();
}

void feed(ConfigXmlStreamingParser &parser, std::string_view document)
{
    parser.feed(document.data(), document.size());
}

std::string stanzasIn(std::string_view document)
{
    ConfigXmlStreamingParser parser;
    feed(parser, document);
    return stanzasOf(parser);
}

std::string failureOf(std::string_view document)
{
    try {
        stanzasIn(document);
    } catch (const ModularInputsException &exception) {
        return exception.what();
    }
    return "none";
}

constexpr std::string_view kDocument = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                       "<input>\n"
                                       "  <server_host>myhost</server_host>\n"
                                       "  <server_uri>https://127.0.0.1:8089</server_uri>\n"
                                       "  <session_key>a&amp;b</session_key>\n"
                                       "  <checkpoint_dir>C:\\d\xC3\xA9p\\x</checkpoint_dir>\n"
                                       "  <!-- none of <this> -->\n"
                                       "  <configuration>\n"
                                       "    <stanza name=\"WinRegMon://b\" other=\"x\">\n"
                                       "      <param name=\"hive\">\\\\REGISTRY\\\\MACHINE\\\\.*</param>\n"
                                       "      <param other='1' name='disabled'>0</param>\n"
                                       "      <param name=\"hive\"><![CDATA[<last>]]>&#65;&#x41;</param>\n"
                                       "    </stanza>\n"
                                       "    <stanza name=\"WinRegMon://a&amp;b\"></stanza>\n"
                                       "  </configuration>\n"
                                       "</input>\n";

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

TEST(ConfigXmlStreamingParser, StanzasAndParams)
{
    const auto stanzas = [](const std::string &body) {
        return stanzasIn("<input><configuration>" + body + "</configuration></input>");
    };
    EXPECT_EQ(stanzas("<stanza><param name='k'>v</param></stanza>"), "");
    EXPECT_EQ(stanzas("<stanza name='s'><param>v</param><param name=''>w</param></stanza>"), "[s]");
    EXPECT_EQ(stanzas("<stanza name='s'><param name='k'/></stanza>"), "[s] k=");
    EXPECT_EQ(stanzas("<stanza name='s'><param name='k'>1</param></stanza>"
                      "<stanza><param name='lost'>x</param></stanza>"
                      "<stanza name='s'><param name='l'>2</param></stanza>"),
              "[s] k=1 l=2");
    EXPECT_EQ(stanzas("<stanza Name='x' name='s'>text<param name='k'>a<!-- -->b</param>text</stanza>"),
              "[s] k=ab");
    EXPECT_EQ(stanzas("<stanza name='a' name='b'><param name='j' name='k'>v</param></stanza>"),
              "[a] [b] k=v");
}

TEST(ConfigXmlStreamingParser, InputIsTheRootAlone)
{
    const std::string input = "<input><configuration><stanza name='s'/></configuration></input>";
    EXPECT_EQ(stanzasIn(""), "");
    EXPECT_EQ(stanzasIn("<other>" + input + "</other>"), "");
    EXPECT_EQ(stanzasIn("<Input><configuration><stanza name='s'/></configuration></Input>"), "");
    EXPECT_EQ(stanzasIn("<other><a/></other>" + input), "[s]");
    EXPECT_EQ(stanzasIn("<input/>" + input), "[s]");
    EXPECT_EQ(stanzasIn(input.substr(0, input.find("</configuration>"))), "[s]");
}

TEST(ConfigXmlStreamingParser, UnexpectedElementsThrow)
{
    const auto text = [](const std::string &name, const std::string &path) {
        return "Unexpected entity \"" + name + "\" found under path \"" + path +
               "\" in the XML configuration input.";
    };
    EXPECT_EQ(failureOf("<input><foo/></input>"), text("foo", "\\input\\foo"));
    EXPECT_EQ(failureOf("<input><input/>"), text("input", "\\input\\input"));
    EXPECT_EQ(failureOf("<input><server_host></server_host >"),
              text("/server_host", "\\input\\server_host\\/server_host"));
    EXPECT_EQ(failureOf("<input><server_host><b>"), text("b", "\\input\\server_host\\b"));
    EXPECT_EQ(failureOf("<input><stanza name='s'>"), text("stanza", "\\input\\stanza"));
    const std::string stanza = "<input><configuration><stanza name='s'>";
    EXPECT_EQ(failureOf(stanza + "<param_list name='l'>"),
              text("param_list", "\\input\\configuration\\stanza\\param_list"));
    EXPECT_EQ(failureOf(stanza + "<param name='p'>1</param><item>"),
              text("item", "\\input\\configuration\\stanza\\item"));
    EXPECT_EQ(failureOf("<other><foo/></other>"), "none");
}

TEST(ReadXmlFromStdin, ReadsToTheEnd)
{
    const std::string filler(8191, ' ');
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    std::fputs((filler + std::string(kDocument)).c_str(), file.get());
    std::rewind(file.get());
    ConfigXmlStreamingParser parser;
    readXmlFromStdin(parser, file.get());
    EXPECT_EQ(parser.stanzas().size(), 2u);
}

TEST(ReadXmlFromStdin, AReadErrorThrows)
{
#ifdef _WIN32
    const File file(std::fopen("NUL", "w"));
#else
    const File file(std::fopen("/dev/null", "w"));
#endif
    ASSERT_TRUE(file);
    ConfigXmlStreamingParser parser;
    try {
        readXmlFromStdin(parser, file.get());
        FAIL() << "no exception";
    } catch (const ModularInputsException &exception) {
        EXPECT_TRUE(exception.message().startsWith("Error reading XML configuration input from stdin: "))
            << exception.what();
    }
}

} // namespace
} // namespace velmox
