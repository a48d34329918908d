#include "pipeline/input/explain/registry_paths.h"
#include "tests/pipeline/input/rules/stanzas.h"

namespace velmox {
namespace {

constexpr char kUser[] = "S-1-5-21-7";

Str patternOf(const Str &path, bool wow64 = false)
{
    return hivePattern(readWrittenPath(path), wow64, kUser).hive;
}

/// What the monitor makes of one stanza with the pattern.
class Watch
{
public:
    explicit Watch(const Str &hive) : group_(stanzas_.add("WinRegMon://x", {{"hive", hive}}).group()) {}

    /// Whether the stanza lets an operation on the path through, and would give it its name.
    std::pair<bool, bool> verdict(const std::u16string &kernelPath)
    {
        Str folded;
        folded.appendUtf16Lowered(kernelPath);
        return {group_->passes({"", folded, "set"}), group_->stanzaOf(folded) != nullptr};
    }
    bool takes(const std::u16string &path) { return verdict(path) == std::pair(true, true); }
    bool leaves(const std::u16string &path) { return verdict(path) == std::pair(false, false); }
    bool renamesControlSet() const { return !stanzas_.hives.currentControlSetPath().empty(); }

private:
    testing::StanzaSet stanzas_;
    std::unique_ptr<MonitorFilterGroup> group_;
};

// Pairs: a path as people write it, and as the kernel reports it; _ is a blank.
constexpr std::string_view kPlaces =
    R"(HKLM \REGISTRY\MACHINE hkey_local_machine \REGISTRY\MACHINE HKEY_LOCAL_MACHINE\SOFTWARE \REGISTRY\MACHINE\SOFTWARE )"
    R"(Computer\HKEY_USERS \REGISTRY\USER HKU:\.DEFAULT \Registry\User\.DEFAULT HKCU \REGISTRY\USER\S-1-5-21-7 )"
    R"(Hkcu\SOFTWARE\classes \REGISTRY\USER\S-1-5-21-7_Classes \registry\machine \REGISTRY\MACHINE )"
    R"(HKU\S-1-5-18\Software\Classes \REGISTRY\USER\S-1-5-18_Classes \REGISTRY\A\{01ab} \REGISTRY\A\{01AB} )"
    R"(HKLM\System\CurrentControlSet \REGISTRY\MACHINE\SYSTEM\ControlSet002 )"
    R"(HKLM\SYSTEM\ControlSet001 \REGISTRY\MACHINE\SYSTEM\ControlSet001 )"
    R"(HKCC \REGISTRY\MACHINE\SYSTEM\ControlSet001\Hardware_Profiles\0001 )"
    R"(HKLM\SOFTWARE\WOW6432Node\Classes \REGISTRY\MACHINE\SOFTWARE\Classes\WOW6432Node)";

StrVector wordsOf(std::string_view text)
{
    StrVector words;
    StrSegment(text).splitInto(words, " ");
    for (Str &word : words) {
        word.replaceAll("_P", " P");
    }
    return words;
}

class HivePatternTest : public ::testing::Test
{
protected:
    unsigned pick(std::size_t count) { return static_cast<unsigned>(dice_() % count); }

    /// A name of a key, in which any character can stand but the one that ends it.
    std::u16string name()
    {
        static constexpr std::u16string_view kCommon = u"abcXYZ019_-";
        static constexpr std::u16string_view kOdd =
            u".[](){}^$|*+?#&'\"%~!@,;=<>: /\n\r\t\x01\x7f"
            u"\u00e4\u00c4\u00df\u0130\u0131\u03a9\u042f\u6f22\u2028\ufffe";
        std::u16string text;
        for (unsigned left = 1 + pick(7); left > 0; --left) {
            const std::u16string_view from = pick(2) == 0 ? kCommon : kOdd;
            text +=
                pick(30) == 0 ? std::u16string(u"\U0001F600") : std::u16string(1, from[pick(from.size())]);
        }
        return text;
    }

    std::mt19937 dice_{20};
};

TEST_F(HivePatternTest, MatchesTheKeyWhatIsBelowItAndNothingElse)
{
    const StrVector places = wordsOf(kPlaces);
    for (int round = 0; round < 3000; ++round) {
        const std::size_t place = 2 * pick(places.size() / 2);
        std::u16string below;
        for (unsigned left = pick(4); left > 0; --left) {
            below.append(u"\\").append(name());
        }
        const Str written = Str::concat(places[place], Str::fromUtf16(below));
        const std::u16string key = std::u16string(WideStr::fromUtf8(places[place + 1]).c_str()) + below;
        const Str pattern = patternOf(written);
        Watch watch(pattern);
        SCOPED_TRACE(::testing::Message() << written.c_str() << " gave " << pattern.c_str());
        const std::u16string odd = name();
        for (const std::u16string_view rest : {u"", u"\\a\nb", u"\\\n\\\r\n", u"\\"}) {
            ASSERT_TRUE(watch.takes(key + std::u16string(rest))) << Str::fromUtf16(rest).c_str();
            ASSERT_TRUE(watch.takes(key + u"\\" + odd + std::u16string(rest)));
        }
        for (const std::u16string_view rest : {u"s", u"\n", u" \\a"}) {
            ASSERT_TRUE(watch.leaves(key + std::u16string(rest))) << Str::fromUtf16(rest).c_str();
        }
        ASSERT_TRUE(watch.leaves(key + odd));
        ASSERT_TRUE(watch.leaves(key.substr(0, key.size() - 1)));
        ASSERT_TRUE(watch.leaves(key.substr(0, key.rfind(u'\\'))));
        ASSERT_FALSE(watch.verdict(std::u16string(u"x").append(key)).first);
        if (!below.empty()) {
            std::u16string beside = key;
            char16_t &unit = beside[key.size() - 1 - pick(below.size() - 1)];
            unit = unit == u'~' ? u'`' : u'~';
            ASSERT_TRUE(watch.leaves(beside)) << Str::fromUtf16(beside).c_str();
        }
        ASSERT_FALSE(watch.renamesControlSet());
    }
}

// As another stanza may have all see it.
TEST_F(HivePatternTest, MatchesTheCurrentControlSetUnderThatNameToo)
{
    Watch watch(patternOf("HKLM\\SYSTEM\\CurrentControlSet\\Services\\X"));
    EXPECT_TRUE(watch.takes(u"\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET\\services\\x\\Start"));
    EXPECT_TRUE(watch.leaves(u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet0012\\services\\x\\Start"));
}

TEST_F(HivePatternTest, TheTwinOf32BitProgramsIsAddedWhereThereIsOne)
{
    // A path, whether there is a note, and keys below \REGISTRY that match, or do not behind a minus.
    for (
        const char *row :
        {R"(HKLM\SOFTWARE\A 0 MACHINE\SOFTWARE\A MACHINE\SOFTWARE\wow6432node\A\b -MACHINE\SOFTWARE\x\A -MACHINE\SOFTWARE\WOW6432Node)",
         R"(HKLM\Software\WOW6432Node\A 0 MACHINE\SOFTWARE\A MACHINE\SOFTWARE\WOW6432Node\A -MACHINE\SOFTWARE)",
         R"(HKLM\SOFTWARE\Classes\CLSID 0 MACHINE\SOFTWARE\Classes\CLSID MACHINE\SOFTWARE\Classes\WOW6432Node\CLSID MACHINE\SOFTWARE\WOW6432Node\Classes\CLSID -MACHINE\SOFTWARE\Classes)",
         R"(HKLM\SOFTWARE 1 MACHINE\SOFTWARE\WOW6432Node -MACHINE\SYSTEM)",
         R"(HKLM\SYSTEM\A 1 MACHINE\SYSTEM\A -MACHINE\SYSTEM\WOW6432Node\A)",
         R"(HKCU\Software\Classes\CLSID 0 USER\S-1-5-21-7_Classes\CLSID\x USER\S-1-5-21-7_Classes\WOW6432Node\CLSID -USER\S-1-5-21-7_Classes)"}) {
        const StrVector words = wordsOf(row);
        const HivePattern pattern = hivePattern(readWrittenPath(words[0]), true, kUser);
        EXPECT_EQ(pattern.notes.size(), words[1] == "1" ? 1u : 0u) << row;
        Watch watch(pattern.hive);
        for (auto key = words.begin() + 2; key != words.end(); ++key) {
            const bool isTaken = (*key)[0] != '-';
            const Str path = Str::concat("\\REGISTRY\\", key->substr(isTaken ? 0 : 1));
            const std::u16string wide = WideStr::fromUtf8(path).c_str();
            EXPECT_TRUE(isTaken ? watch.takes(wide) : watch.leaves(wide))
                << path.c_str() << pattern.hive.c_str();
        }
    }
}

TEST_F(HivePatternTest, RefusesWhatIsNoOnePath)
{
    for (const char *path :
         {"", "\\", "SOFTWARE\\X", "HKLM\\\\SOFTWARE\\\\X", "HKLMX\\A", "HKCR\\.txt", "\\REGISTRYX\\A"}) {
        EXPECT_THROW(patternOf(path), ExplainException) << path;
    }
    EXPECT_EQ(patternOf("HKLM\\SOFTWARE\\A\\"), patternOf("HKLM\\SOFTWARE\\A"));
}

} // namespace
} // namespace velmox
