#include "companion/stream/stream_event.h"
#include "tests/companion/stream/event_samples.h"

namespace velmox {
namespace {

using ::testing::ElementsAre;

std::string event(const std::string &keyPath)
{
    return eventOf(baselineData(keyPath, "REG_NONE", ""));
}

TEST(StreamReader, ReadsStreamsOneAfterAnotherWithAndWithoutEnd)
{
    EXPECT_THAT(
        read("<stream>\n" + event("a") + "</stream>\n<stream>\n" + event("b") + "<stream>\r\n" + event("c")),
        ElementsAre("1 a", "2 b", "3 c"));
    // What is left of a file whose beginning was cut away.
    EXPECT_THAT(read(event("a") + "</stream>\n"), ElementsAre("0 a"));
    EXPECT_THAT(read(""), ElementsAre());
    EXPECT_THAT(read("<stream>\r\n</stream>\r\n"), ElementsAre());
}

TEST(StreamReader, TellsWhatIsNoStreamAndGoesOnBehindIt)
{
    EXPECT_THAT(read("junk < more\n" + event("a")), ElementsAre("at 0: these bytes are no event", "0 a"));
    const std::string good = event("a");
    const std::string at = std::to_string(good.size());
    EXPECT_THAT(read(good + "<events>" + good),
                ElementsAre("0 a", "at " + at + ": these bytes are no event", "0 a"));
    EXPECT_THAT(read(good + "<event><data>11/" + good),
                ElementsAre("0 a", "at " + at + ": an event is cut off", "0 a"));
    EXPECT_THAT(read(good + "<event><data>11/<stream>" + good),
                ElementsAre("0 a", "at " + at + ": an event is cut off", "1 a"));
    EXPECT_THAT(read(good + "<event><data>11/"), ElementsAre("0 a", "at " + at + ": an event is cut off"));
    EXPECT_THAT(read(good + "<event><data>&#0;</data></event>" + good),
                ElementsAre("0 a", "at " + at + ": an event is not well-formed XML", "0 a"));
    EXPECT_THAT(read(good + "<event><data><data></event>" + good),
                ElementsAre("0 a", "at " + at + ": an event is not well-formed XML", "0 a"));
    EXPECT_THAT(
        read(good + eventOf("hello") + good),
        ElementsAre("0 a", "at " + at + ": the data of an event is not as the monitor writes it", "0 a"));
}

TEST(StreamReader, PassesOverWhatToolsPutInFrontAndExplainsUtf16)
{
    const std::string mark = "\xEF\xBB\xBF";
    const std::string declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
    const std::string stream = mark + declaration + "<stream>\n" + event("a") + "</stream>\n";
    EXPECT_THAT(read(stream + stream + mark), ElementsAre("1 a", "2 a"));
    EXPECT_THAT(read("<?xml <stream>" + event("a")), ElementsAre("at 0: these bytes are no event", "1 a"));
    EXPECT_THAT(read("<?xml" + std::string(300, ' ') + "?>"), ElementsAre("at 0: these bytes are no event"));

    const std::string explained =
        ": these bytes are UTF-16, as the > of PowerShell writes it; let cmd.exe redirect the stream";
    std::string wide;
    for (const char byte : "<stream>\r\n" + event("a")) {
        wide += {byte, '\0'};
    }
    EXPECT_THAT(read("\xFF\xFE" + wide), ElementsAre("at 0" + explained));
    EXPECT_THAT(read(event("a") + wide),
                ElementsAre("0 a", "at " + std::to_string(event("a").size()) + explained));
    EXPECT_THAT(read("\xFE\xFF" + ('\0' + wide)), ElementsAre("at 0" + explained));
}

TEST(StreamReader, KeepsMemoryBoundedWhateverComes)
{
    const std::string bytes = "<event>" + std::string(FrameScanner::kMaxEventBytes, 'x');
    EXPECT_THAT(read(bytes + "</event>" + event("a")), ElementsAre("at 0: an event is too long", "0 a"));
}

TEST(StreamReader, GivesTextsAsTheyWereBeforeEscaping)
{
    const auto data = [](const std::string &text) {
        std::string out;
        withEvent(eventOf(baselineData("k", "REG_SZ", text)),
                  [&](const StreamEvent &event) { out = event.data; });
        return out;
    };
    EXPECT_EQ(data("&lt;&amp;&gt;&quot;&apos;&amp;amp;"), "<&>\"'&amp;");
    EXPECT_EQ(data("\\x01\t\xC3\xA4\xF0\x9F\x98\x80"), "\\x01\t\xC3\xA4\xF0\x9F\x98\x80");
    // A value with a line feed, with CR LF, with CR alone, as the stream has them.
    EXPECT_EQ(data("a\r\nb\r\r\nc\rd"), "a\nb\r\nc\rd");
    // Bytes that are no character, and one that XML has no place for.
    EXPECT_EQ(data("a\xFF\xC3z\xEF\xBF\xBF"), "a\xEF\xBF\xBD\xEF\xBF\xBDz\xEF\xBF\xBD");
}

TEST(StreamReader, ReadsStanzaAndElements)
{
    withEvent("<event unbroken=\"1\" stanza=\"a&amp;&quot;b\"><time>7</time><data>" +
                  liveData("k", "REG_NONE", "") + "</data><done/><host>h</host></event>",
              [](const StreamEvent &event) {
                  EXPECT_EQ(event.stanza, "a&\"b");
                  EXPECT_EQ(event.time, "7");
                  EXPECT_EQ(event.host, "h");
                  EXPECT_EQ(event.index, "");
                  EXPECT_EQ(event.localTime, "11/21/2026 06:51:16.514");
                  EXPECT_EQ(event.status, "(0)Success.");
                  EXPECT_EQ(event.pid, "252");
                  EXPECT_EQ(event.processImage, "c:\\windows\\regedit.exe");
                  EXPECT_EQ(event.operation, "SetValue");
              });
}

/// Key, type and data, with bars between.
std::string valueOf(const std::string &data)
{
    StreamEvent event;
    if (!readEventData(data, event)) {
        return "unreadable";
    }
    return std::string(event.keyPath) + "|" + std::string(event.dataType) + "|" + std::string(event.data);
}

TEST(EventData, TakesNoValueForAnotherFieldWhereTheGrammarCanTell)
{
    const std::string forged = "\"\ndata_type=\"REG_DWORD\"\ndata=\"0x0000002a(42)";
    // In data, all behind the key's end is data.
    EXPECT_EQ(valueOf(liveData("k", "REG_SZ", "x" + forged)), "k|REG_SZ|x" + forged);
    // In a key, the form of the data tells: nothing may stand behind the number.
    EXPECT_EQ(valueOf(liveData("k" + forged, "REG_SZ", "x")), "k" + forged + "|REG_SZ|x");
    EXPECT_EQ(valueOf(liveData("k" + forged, "REG_BINARY", "")), "k" + forged + "|REG_BINARY|");
    const std::string noType = "\"\ndata_type=\"REG_OTHER\"\ndata=\"";
    EXPECT_EQ(valueOf(liveData("k" + noType, "REG_SZ", "x")), "k" + noType + "|REG_SZ|x");
    // Text fits any data, and the first end of the key counts.
    EXPECT_EQ(valueOf(liveData("k\"\ndata_type=\"REG_SZ\"\ndata=\"y", "REG_SZ", "x")),
              "k|REG_SZ|y\"\ndata_type=\"REG_SZ\"\ndata=\"x");
    EXPECT_EQ(valueOf(liveData("a\"\nregistry_type=\"SetValue\"\nkey_path=\"b", "REG_NONE", "")),
              "a\"\nregistry_type=\"SetValue\"\nkey_path=\"b|REG_NONE|");
}

TEST(EventData, RefusesDataThatDoesNotFitItsType)
{
    EXPECT_EQ(valueOf(liveData("k", "REG_DWORD", "")), "k|REG_DWORD|");
    EXPECT_EQ(valueOf(liveData("k", "REG_QWORD", "0xfffffffffffffffe(-2)")),
              "k|REG_QWORD|0xfffffffffffffffe(-2)");
    for (const char *number :
         {"0x0000002a(43)", "0x2a(42)", "0x0000002a(42", "42", "0x0000002a()", "0x0000002a(-42)"}) {
        EXPECT_EQ(valueOf(liveData("k", "REG_DWORD", number)), "unreadable") << number;
    }
    EXPECT_EQ(valueOf(liveData("k", "REG_BINARY", "x")), "unreadable");
    EXPECT_EQ(valueOf(liveData("k", "REG_OTHER", "x")), "unreadable");
    const std::string good = liveData("k", "REG_SZ", "x");
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_EQ(valueOf(good.substr(0, length)), "unreadable") << length;
    }
}

} // namespace
} // namespace velmox
