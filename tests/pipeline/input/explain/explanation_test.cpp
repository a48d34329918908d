#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/explain/explanation.h"
#include "pipeline/input/rules/registry_operations.h"
#include "testbed/record_builder.h"
#include "util/files/file_star.h"

namespace velmox {
namespace {

/// The monitor's road from a record to the stream, on stanzas of a test.
class Monitor
{
public:
    Monitor(const Stanzas &stanzas, const StanzaDefaults &defaults)
        : out_(FileStar::tempFile()), emitter_([](const Str &) {}, out_.get()),
          records_(rules_, hives_, statuses_, emitter_)
    {
        ProcessImageTable::instance().init();
        hives_.initHiveNameKeyMap();
        rules_.insert(kRegmonFilters, makeFilterGroup(stanzas, defaults, hives_));
    }
    ~Monitor() { ProcessImageTable::instance().destroy(); }

    /// What explain() would have to say: whether there is an event, its stanza and its index.
    Str eventOf(std::uint32_t operation, const Str &key, const Str &image)
    {
        const std::uint32_t pid = ++pid_;
        if (!image.empty()) {
            ProcessImageTable::instance().add(pid, WideStr::fromUtf8(image).c_str());
        }
        const long before = std::ftell(out_.get());
        const WideStr name = WideStr::fromUtf8(key);
        const testbed::Bytes bytes = testbed::recordBuffer(
            {{.operation = operation, .pid = pid, .dataType = 0, .name = {name.data(), name.size()}}});
        records_.processData(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        std::string text(static_cast<std::size_t>(std::ftell(out_.get()) - before), '\0');
        std::fseek(out_.get(), before, SEEK_SET);
        text.resize(std::fread(text.data(), 1, text.size(), out_.get()));
        std::fseek(out_.get(), 0, SEEK_END);
        return text.empty() ? Str("dropped")
                            : Str::fromFormat("%s %s", between(text, " stanza=\"", "\"").c_str(),
                                              between(text, "<index>", "</index>").c_str());
    }

private:
    static Str between(const std::string &text, std::string_view from, std::string_view to)
    {
        const std::size_t at = text.find(from);
        return at == std::string::npos
                   ? Str("-")
                   : Str(text.substr(at + from.size(), text.find(to, at + from.size()) - at - from.size()));
    }

    std::uint32_t pid_ = 1000000;
    HiveNames hives_;
    MonitorRules rules_;
    StatusTexts statuses_;
    FileStar out_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

Str shortForm(const Explanation &explanation)
{
    if (!explanation.passes) {
        return "dropped";
    }
    return explanation.naming ? Str::fromFormat("%s %s", explanation.naming->stanza.c_str(),
                                                explanation.naming->index.c_str())
                              : Str("- -");
}

StrVector split(std::string_view text, const char *separator)
{
    StrVector pieces;
    StrSegment(text).splitInto(pieces, separator);
    return pieces;
}
StrVector wordsOf(std::string_view text)
{
    return split(text, " ");
}

/// M stands for the machine's root, U for a user's, @ for a line end.
Str kernelKey(Str key)
{
    if (key.startsWith("M") || key.startsWith("U")) {
        key.replace(0, 1, key[0] == 'M' ? "\\REGISTRY\\MACHINE" : "\\REGISTRY\\USER\\S-1-5-21-1-2-3-1001");
    }
    key.replaceAll("@", "\n");
    return key;
}

/// Stanzas as settings have them, in lines that may be indented.
Stanzas stanzasOf(std::string_view text)
{
    Stanzas stanzas;
    PropertiesMap *open = nullptr;
    for (const Str &line : split(text, "\n")) {
        const Str setting = line.trimmed();
        const std::size_t equals = setting.find(" =");
        if (setting.startsWith("[WinRegMon:")) {
            open = &stanzas[setting.substr(1, setting.size() - 2)];
        } else if (open != nullptr && equals != Str::npos) {
            open->set(setting.substr(0, equals), setting.substr(equals + 2).trimmed());
        }
    }
    return stanzas;
}

Explanation explained(const Stanzas &stanzas, const char *word, const Str &key, const Str &process = {})
{
    return explain(stanzas, {"default", true}, {word, readWrittenPath(key), process});
}

TEST(Explanation, SaysOfRandomStanzasAndRecordsWhatTheMonitorMakesOfThem)
{
    static const StrVector kHives = wordsOf(
        R"( .* HKLM\\Software\\Velmox HKLM\\Software\\Velmox\\.* HKLM\\SOFTWARE\\Velmox(\\.*)? HKCU\\.* hklm\\.* HKLM\\(\S+) )"
        R"(HKU\\S-[^\\]+\\Software\\.* HKLM\\SYSTEM\\CurrentControlSet\\Services\\.* .*\\velmox\\(a|b) HKLM\\Ä.* )"
        R"(HKLM\\SYSTEM\\ControlSet001\\Services\\.* HKLM\\SOFTWARE|HKLM\\SYSTEM.* HKLM\\SYSTEM\\[^\\]+\\Services\\x.*)");
    static const StrVector kProcs = wordsOf(R"( .* C:\\windows\\.* regedit\.exe$ ^$ \\device\\.* reg|cmd)");
    static const StrVector kTypes = wordsOf(" set SET|delete .* create|rename e query|open|close");
    static const StrVector kKeys = wordsOf(
        R"(\REGISTRY\MACHINE\SOFTWARE\Velmox M\Software\velmox\A M\SOFTWARE\VelmoxB\b M\SYSTEM\ControlSet001\Services\X\Start )"
        R"(M\SYSTEM\ControlSet002\Services\X M\SYSTEM\CurrentControlSet\Services\X M\Äpfel U\Software\a@b \REGISTRY\A\x )"
        R"(\registry\machine\@ M\SOFTWARE)");
    static const StrVector kImages =
        wordsOf(R"( \Device\HarddiskVolume1\windows\REGEDIT.exe \Device\X\cmd.exe System)");
    const testing::CapturedLog quiet;
    std::mt19937 dice(17);
    const auto pick = [&dice](const StrVector &from) { return from[dice() % from.size()]; };
    std::set<Str> seen;
    for (int round = 0; round < 300; ++round) {
        Stanzas stanzas;
        for (unsigned left = 1 + dice() % 5; left > 0; --left) {
            PropertiesMap &stanza = stanzas[Str("WinRegMon://") << static_cast<char>('a' + dice() % 9)];
            stanza.set("hive", pick(kHives));
            stanza.set("proc", pick(kProcs));
            stanza.set("type", pick(kTypes));
            stanza.set("index", dice() % 2 == 0 ? "" : "main");
            stanza.set("disabled", left == 2 ? "1" : "0");
        }
        const StanzaDefaults defaults{"other", dice() % 4 != 0};
        HiveNames names;
        if (!makeFilterGroup(stanzas, defaults, names)) {
            EXPECT_THROW(explained(stanzas, "set", "HKLM"), ExplainException);
            continue;
        }
        Monitor monitor(stanzas, defaults);
        for (int record = 0; record < 8; ++record) {
            const Str key = kernelKey(pick(kKeys));
            const Str image = pick(kImages);
            const std::uint32_t operation = dice() % 18;
            const Str expected = monitor.eventOf(operation, key, image);
            const Explanation explanation =
                explain(stanzas, defaults, {registryOperation(operation).word, readWrittenPath(key), image});
            ASSERT_EQ(shortForm(explanation), expected) << key.c_str() << ' ' << operation;
            const bool anyMatches = std::ranges::any_of(explanation.stanzas, &StanzaAnswer::matches);
            ASSERT_EQ(explanation.passes, anyMatches == defaults.inclusive);
            for (const StanzaAnswer &answer : explanation.stanzas) {
                ASSERT_EQ(answer.matches(), answer.why.empty());
            }
            seen.insert(expected);
        }
    }
    // All the names, with both indexes, none, and nothing.
    EXPECT_EQ(seen.size(), 9u * 2 + 2);
}

TEST(Explanation, TheReadyStanzasOfTheDocumentsReportWhatTheySay)
{
    const testing::CapturedLog quiet;
    const Stanzas stanzas =
        stanzasOf(testing::readWhole(Pathname::fromUtf8(VELMOX_DOCUMENTS).join("first-hour.md")).view());
    Monitor monitor(stanzas, {"default", true});
    // A stanza, or - for none, and a key.
    const StrVector words = wordsOf(
        R"(autostart M\SOFTWARE\Microsoft\Windows\CurrentVersion\Run - M\SOFTWARE\Microsoft\Windows\CurrentVersion\Runner\x )"
        R"(autostart M\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\RunOnce\x@y )"
        R"(autostart-of-users U\Software\Microsoft\Windows\CurrentVersion\Run\x - U\Software\Microsoft\Windows\CurrentVersion )"
        R"(autostart-of-users \REGISTRY\USER\S-1-12-1-4-5-6-7\SOFTWARE\Microsoft\Windows\CurrentVersion\RunOnce )"
        R"(services M\SYSTEM\ControlSet001\Services\Vendor services M\SYSTEM\ControlSet002\Services\Ven@dor\ImagePath )"
        R"(services M\SYSTEM\ControlSet001\Services\Vendor\Parameters\ServiceDll - M\SYSTEM\ControlSet001\Services\Vendor\Tag )"
        R"(policies M\SOFTWARE\Policies\Microsoft\Windows\x policies M\SOFTWARE\Microsoft\Windows\CurrentVersion\Policies )"
        R"(policies-of-users U\Software\Microsoft\Windows\CurrentVersion\Policies\x policies-of-users U\Software\Policies\y )"
        R"(product M\SOFTWARE\Vendor\Product product M\SOFTWARE\WOW6432Node\Vendor\Product\a\b - M\SOFTWARE\Vendor\Products )"
        R"(- M\SOFTWARE\Vendor - M\SOFTWARE\PoliciesOf\x - \REGISTRY\USER\S-1-5-18\Software\Policies)");
    for (auto word = words.begin(); word != words.end(); word += 2) {
        const Str key = kernelKey(word[1]);
        const bool isTaken = word[0] != "-";
        EXPECT_EQ(monitor.eventOf(16, key, ""), isTaken ? Str::concat(word[0], " default") : Str("dropped"))
            << key.c_str();
        EXPECT_EQ(explained(stanzas, "set", key).isAccepted(), isTaken) << key.c_str();
    }
}

TEST(Explanation, TellsWhetherTheDriverReportsTheOperation)
{
    const Stanzas stanzas = stanzasOf("[WinRegMon://a]\nhive = HKLM\\\\A.*\ntype = SET|delete");
    EXPECT_TRUE(explained(stanzas, "delete", "HKLM\\A").isAccepted());
    EXPECT_FALSE(explained(stanzas, "delete", "HKCU\\A").isReported);
    EXPECT_FALSE(explained(stanzas, "delete", "\\REGISTRY\\MACHINES").isReported);
    const Explanation capitals = explained(stanzas, "set", "HKLM\\A");
    EXPECT_TRUE(capitals.passes && !capitals.isReported && !capitals.isAccepted());
}

TEST(Explanation, NamesTheStanzaThatTheMonitorWouldNotRunOn)
{
    for (const char *fault : {"hive = HKLM\\\\(", "proc = [", "hive = HKLM\\\\A.*\ntype = (set|delete)"}) {
        const testing::CapturedLog log;
        const Stanzas stanzas = stanzasOf(
            Str::fromFormat("[WinRegMon://a]\nhive = HKLM\\\\B\n[WinRegMon://b]\n%s\n[WinRegMon://c]", fault)
                .view());
        EXPECT_THAT(
            [&] { explained(stanzas, "set", "HKLM"); },
            ::testing::ThrowsMessage<ExplainException>(::testing::EndsWith("in the stanza WinRegMon://b")));
        // Those that the rules come to have a root.
        EXPECT_FALSE(log.text().contains("hive root path")) << log.text().c_str();
    }
}

TEST(Explanation, TranslatesPathsAsTheKernelReportsThem)
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    char16_t image[kImageUnits];
    ASSERT_TRUE(queryProcessImage(GetCurrentProcessId(), image));
    const Stanzas all = stanzasOf("[WinRegMon://a]");
    EXPECT_EQ(explained(all, "set", "HKLM", Str::fromUtf16(asUtf16(path))).process.lowered(),
              Str::fromUtf16(image).lowered());
    HiveNames names;
    names.initHiveNameKeyMap();
    const Str user = Str::concat("\\REGISTRY\\USER\\", currentUserKey(names));
    for (const auto &[written, reported] : std::map<Str, Str>{
             {"HKLM\\system\\currentcontrolset\\Services\\A",
              kernelKey("M\\System\\ControlSet001\\Services\\A")},
             {"HKCC\\A", kernelKey("M\\System\\ControlSet001\\Hardware Profiles\\0001\\A")},
             {"HKCU", user},
             {"HKCU\\Software\\A\\C:\\a.exe", Str::concat(user, "\\Software\\A\\C:\\a.exe")},
             {"HKCR\\.nobody", kernelKey("M\\SOFTWARE\\Classes\\.nobody")},
             {kernelKey("M\\SYSTEM\\CurrentControlSet"), kernelKey("M\\SYSTEM\\CurrentControlSet")}}) {
        EXPECT_EQ(explained(all, "set", written).keyPath.uppered(), reported.uppered());
    }
}

TEST(Mismatch, SaysWhereThePatternFails)
{
    constexpr const char *kRows[][3] = {
        {R"(\\a\\vendor\\.*)", R"(\a\vendors\x)",
         R"(differs at character 10: the pattern has "vendor\", the path "vendors\x")"},
        {R"(\\a\\vendor(\\.*)?)", R"(\a\vendors)",
         R"(matches characters 1 to 9 and not the path as a whole, which has 10)"},
        {R"(\\a\\vendor\\.*)", R"(\a\vendor)",
         R"(the path ends at character 9, where the pattern goes on with "\")"},
        {R"(\\ä\.bö.*)", R"(\ä.bä)", R"(differs at character 5: the pattern has "ä.bö", the path "ä.bä")"},
        {R"(\\ab?c)", R"(\b)", R"(differs at character 2: the pattern has "a", the path "b")"},
        {R"(\\a\\[^\\]+\\services\\.*)", R"(\a\b\software)", R"(does not find "\services\")"},
        {R"(\\a|\\b)", R"(\c)", R"(finds none of "\a", "\b")"},
        {R"([)|(]x)", R"(\c)", R"(does not find "x")"},
        {R"(\\d\d+)", R"(\dx)", R"(the expression finds nothing)"},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(whyNotAll(Regex(row[0], false, 0), row[1]), row[2]) << row[0];
    }
}

} // namespace
} // namespace velmox
