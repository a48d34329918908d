#include "pipeline/input/explain/registry_paths.h"
#include "tests/pipeline/input/rules/stanzas.h"

namespace velmox {
namespace {

constexpr char kUser[] = "S-1-5-21-7";

/// What the monitor makes of a stanza with the pattern for a path.
class Watch
{
public:
    explicit Watch(const Str &path, bool wow64 = false)
        : pattern_(hivePattern(readWrittenPath(path), wow64, kUser)),
          group_(stanzas_.add("WinRegMon://x", {{"hive", pattern_.hive}}).group())
    {
    }

    const HivePattern &pattern() const { return pattern_; }
    /// Whether the stanza lets an operation on a key through, and would name its event; or neither.
    bool takes(const Str &key) { return verdict(key) == std::pair(true, true); }
    bool leaves(const Str &key) { return verdict(key) == std::pair(false, false); }
    bool renamesControlSet() const { return !stanzas_.hives.currentControlSetPath().empty(); }

private:
    std::pair<bool, bool> verdict(const Str &key)
    {
        return {group_->passes({"", key.lowered(), "set"}), group_->stanzaOf(key.lowered()) != nullptr};
    }

    HivePattern pattern_;
    testing::StanzaSet stanzas_;
    std::unique_ptr<MonitorFilterGroup> group_;
};

StrVector wordsOf(std::string_view text)
{
    StrVector words;
    StrSegment(text).splitInto(words, " ");
    return words;
}

TEST(HivePattern, MatchesTheKeyWhatIsBelowItAndNothingElse)
{
    // A path as people write it, and as the kernel reports it.
    const StrVector places = wordsOf(
        R"(HKLM \REGISTRY\MACHINE hkey_local_machine \REGISTRY\MACHINE HKEY_LOCAL_MACHINE\SOFTWARE \REGISTRY\MACHINE\SOFTWARE )"
        R"(Computer\HKEY_USERS \REGISTRY\USER HKU:\.DEFAULT \Registry\User\.DEFAULT HKCU \REGISTRY\USER\S-1-5-21-7 )"
        R"(Hkcu\SOFTWARE\classes \REGISTRY\USER\S-1-5-21-7_Classes \registry\machine \REGISTRY\MACHINE )"
        R"(HKU\S-1-5-18\Software\Classes \REGISTRY\USER\S-1-5-18_Classes \REGISTRY\A\{01ab} \REGISTRY\A\{01AB} )"
        R"(HKLM\System\CurrentControlSet \REGISTRY\MACHINE\SYSTEM\ControlSet002 )"
        R"(HKLM\System\CurrentControlSet \REGISTRY\MACHINE\SYSTEM\CurrentControlSet )"
        R"(HKLM\System\CurrentControlSetX \REGISTRY\MACHINE\SYSTEM\CurrentControlSetX )"
        R"(\REGISTRY\A\System\CurrentControlSet \REGISTRY\A\System\CurrentControlSet )"
        R"(HKLM\SYSTEM\ControlSet001 \REGISTRY\MACHINE\SYSTEM\ControlSet001 )"
        R"(HKCC\X \REGISTRY\MACHINE\SYSTEM\ControlSet001\Hardware@Profiles\0001\X )"
        R"(HKLM\SOFTWARE\WOW6432Node\Classes \REGISTRY\MACHINE\SOFTWARE\Classes\WOW6432Node)");
    // Any character can stand in a name but the one that ends it.
    const StrVector characters =
        wordsOf("a b c X Y Z 0 1 _ - . [ ] ( ) { } ^ $ | * + ? # & ' \" % ~ ! @ , ; = < > : / \n "
                "\r \t \x01 \x7f ä Ä ß İ ı Ω Я 漢 \u2028 \ufffe 😀 .* \\");
    std::mt19937 dice(20);
    const auto name = [&] {
        Str text;
        for (unsigned left = 1 + dice() % 7; left > 0; --left) {
            const Str &one = characters[dice() % characters.size()];
            text << (one == "\\" ? std::string_view(" ") : one.view());
        }
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const auto place = places.begin() + 2 * (dice() % (places.size() / 2));
        Str below;
        for (unsigned left = dice() % 4; left > 0; --left) {
            below << '\\' << name();
        }
        Str key = place[1];
        key.replaceAll("@", " ");
        key << below;
        Watch watch(Str::concat(place[0], below));
        SCOPED_TRACE(::testing::Message() << key.c_str() << " by " << watch.pattern().hive.c_str());
        const Str odd = name();
        for (const char *rest : {"", "\\a\nb", "\\\n\\\r\n", "\\"}) {
            ASSERT_TRUE(watch.takes(Str::concat(key, rest))) << rest;
            ASSERT_TRUE(watch.takes(Str(key) << '\\' << odd << rest)) << rest;
        }
        for (const Str &rest : {Str("s"), Str("\n"), Str(" \\a"), odd}) {
            ASSERT_TRUE(watch.leaves(Str::concat(key, rest))) << rest.c_str();
        }
        ASSERT_TRUE(watch.leaves(key.substr(0, key.rfind('\\'))));
        ASSERT_FALSE(watch.takes(Str::concat("x", key)));
        key.insert(key.rfind('\\') + 1, "~");
        ASSERT_TRUE(watch.leaves(key)) << key.c_str();
        ASSERT_FALSE(watch.renamesControlSet());
    }
}

TEST(HivePattern, TheTwinOf32BitProgramsIsAddedWhereThereIsOne)
{
    // A path, how many notes there are, and keys below \REGISTRY that match, or do not behind a minus.
    for (
        const char *row :
        {R"(HKLM\SOFTWARE\A 0 MACHINE\SOFTWARE\A MACHINE\SOFTWARE\wow6432node\A\b -MACHINE\SOFTWARE\x\A)",
         R"(HKLM\Software\WOW6432Node\A 0 MACHINE\SOFTWARE\A MACHINE\SOFTWARE\WOW6432Node\A -MACHINE\SOFTWARE)",
         R"(HKLM\SOFTWARE\Classes\A 0 MACHINE\SOFTWARE\Classes\A MACHINE\SOFTWARE\Classes\WOW6432Node\A -MACHINE\SOFTWARE\A)",
         R"(HKLM\SOFTWARE\Classes\A 0 MACHINE\SOFTWARE\WOW6432Node\Classes\A -MACHINE\SOFTWARE\Classes)",
         R"(HKLM\SOFTWARE 1 MACHINE\SOFTWARE\WOW6432Node -MACHINE\SYSTEM)",
         R"(HKLM\SYSTEM\A 1 MACHINE\SYSTEM\A -MACHINE\SYSTEM\WOW6432Node\A)",
         R"(\REGISTRY\WC\Silo1 2 WC\Silo1\x -MACHINE\Silo1)",
         R"(HKCU\Software\Classes\A 0 USER\S-1-5-21-7_Classes\A\x USER\S-1-5-21-7_Classes\WOW6432Node\A -USER\S-1-5-21-7)"}) {
        const StrVector words = wordsOf(row);
        Watch watch(words[0], true);
        EXPECT_EQ(Str() << watch.pattern().notes.size(), words[1]) << row;
        for (auto key = words.begin() + 2; key != words.end(); ++key) {
            const bool isTaken = !key->startsWith("-");
            const Str path = Str::concat("\\REGISTRY\\", key->substr(isTaken ? 0 : 1));
            EXPECT_TRUE(isTaken ? watch.takes(path) : watch.leaves(path)) << path.c_str() << row;
        }
    }
}

TEST(HivePattern, RefusesWhatIsNoOnePath)
{
    for (const char *path : {"", "\\", "SOFTWARE\\X", "HKLM\\\\SOFTWARE\\\\X", "HKLMX\\A", "HKCR\\.txt",
                             "\\REGISTRYX\\A", "HKLM\\A\\\\B", "HKLM\\A\\B\\\\", "\\REGISTRY\\\\A\\B"}) {
        EXPECT_THROW(Watch{path}, ExplainException) << path;
    }
    EXPECT_EQ(Watch("HKLM\\SOFTWARE\\A\\").pattern().hive, Watch("HKLM\\SOFTWARE\\A").pattern().hive);
}

} // namespace
} // namespace velmox
