#include "capture/file/capture_writer.h"
#include "capture/summary/summary.h"
#include "testbed/record_builder.h"

#include <nlohmann/json.hpp>
#include <random>

namespace velmox {
namespace {

using Counts = std::map<std::string, std::uint64_t>;

/// A capture of random records, and what a summary has to say of it, counted while it was made.
struct Sample
{
    std::string file;
    Counts operations;
    Counts processes;
    Counts keys;

    OpenCapture open() const
    {
        return [this] {
            return [rest = std::string_view(file)](char *out, std::size_t wanted) mutable {
                const std::size_t count = rest.copy(out, wanted);
                rest.remove_prefix(count);
                return count;
            };
        };
    }
};

Sample makeSample(unsigned count)
{
    struct Named
    {
        std::uint32_t number;
        const char *name;
    };
    constexpr Named kOperations[] = {{16, "SetValue"}, {1, "SetValue"}, {17, "DeleteKey"}, {27, "CreateKey"}};
    constexpr Named kProcesses[] = {{8, "c:\\Windows\\one.exe"},
                                    {12, "c:\\Windows\\(two) +.exe"},
                                    {16, "N/A"},
                                    {20, "c:\\x\\Windows\\one.exe"}};
    const std::u16string kRoot = u"\\REGISTRY\\";
    const std::u16string kKeys[] = {u"MACHINE\\SOFTWARE\\Vendor",
                                    u"MACHINE\\SOFTWARE\\Vendor\\Noisy.App\\V1",
                                    u"MACHINE\\SOFTWARE\\Vendor\\NoisyXApp",
                                    u"MACHINE\\SOFTWARE\\Vendor\\Noisy.App [a|b]\\\u00e4",
                                    u"MACHINE\\SYSTEM\\ControlSet001\\Services\\x",
                                    u"USER\\.DEFAULT\\x"};
    Sample sample;
    CaptureWriter writer([&](std::string_view bytes) { sample.file += bytes; });
    writer.write({.filter = {7, 0x17, 127, 3},
                  .userPath = u"\\REGISTRY\\USER\\S-1",
                  .drives = {{"c:", "\\device\\harddiskvolume2"}},
                  .processes = {{8, u"\\Device\\HarddiskVolume2\\Windows\\one.exe"},
                                {12, u"\\Device\\HarddiskVolume2\\Windows\\(two) +.exe"},
                                {20, u"\\Device\\HarddiskVolume2\\x\\Windows\\one.exe"}}});
    std::mt19937 random(17);
    testbed::Bytes buffer;
    for (unsigned at = 0; at < count; ++at) {
        const Named &operation = kOperations[random() % std::size(kOperations)];
        const Named &process = kProcesses[random() % std::size(kProcesses)];
        const std::u16string &key = kKeys[random() % std::size(kKeys)];
        testbed::appendRecord(buffer, {.operation = operation.number,
                                       .pid = process.number,
                                       .name = kRoot + key,
                                       .data = testbed::textData(std::u16string(random() % 50, u'<'))});
        ++sample.operations[operation.name];
        ++sample.processes[process.name];
        Str shown = Str::fromUtf16(key);
        shown.replaceAll("MACHINE", "HKLM");
        shown.replaceAll("USER", "HKU");
        ++sample.keys[std::string(shown.view())];
    }
    writer.write({.lostReads = 2, .offsets = {{13'222'310'400, 0}}, .statuses = {{0, "(0)Success."}}},
                 buffer);
    buffer = testbed::recordBuffer({testbed::imageLoaded(8, u"c:\\x.dll"), testbed::processExited(8, 4)});
    ++sample.operations["ProcessImage"];
    ++sample.operations["ProcessExited"];
    sample.processes["c:\\Windows\\one.exe"] += 2;
    writer.write({.lostReads = 1}, buffer);
    writer.write({.records = count + 2, .lostReads = 5});
    return sample;
}

/// The stream of a replay, cut into its events.
std::vector<std::string> eventsOf(const Sample &sample, const MonitorSettings &settings)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::tmpfile(), std::fclose);
    {
        CaptureReader reader(sample.open()());
        CaptureReplay replay(reader.start(), settings.stanzas, settings.defaults, file.get());
        for (CapturedBuffer buffer; reader.next(buffer);) {
            replay.take(buffer);
        }
    }
    std::string stream(static_cast<std::size_t>(std::ftell(file.get())), '\0');
    std::rewind(file.get());
    EXPECT_EQ(std::fread(stream.data(), 1, stream.size(), file.get()), stream.size());
    constexpr std::string_view kEnd = "</event>\r\n";
    std::vector<std::string> events;
    for (std::size_t at = stream.find("<event"), end; at != std::string::npos;
         at = stream.find("<event", end)) {
        end = stream.find(kEnd, at) + kEnd.size();
        events.push_back(stream.substr(at, end - at));
    }
    return events;
}

Stanzas stanzasOf(std::initializer_list<std::array<const char *, 4>> rows)
{
    Stanzas stanzas;
    for (const auto &[name, hive, proc, type] : rows) {
        PropertiesMap &stanza = stanzas[Str::concat("WinRegMon://", name)];
        stanza.set("hive", hive);
        stanza.set("proc", proc);
        stanza.set("type", type);
    }
    return stanzas;
}

TEST(Summary, CountsWhatACaptureHoldsAndWhatItsStreamSays)
{
    const Sample sample = makeSample(2000);
    Stanzas stanzas = stanzasOf({{"a", R"(HKLM\\SOFTWARE\\Vendor.*)", ".*", "set|create"},
                                 {"long", R"(HKLM\\SOFTWARE\\Vendor\\Noisy\.App\\.*)", ".*", "delete"},
                                 {"never", R"(HKLM\\SYSTEM\\Nothing)", ".*", "set"}});
    stanzas["winregmon:a"].set("hive", R"(HKLM\\SOFTWARE\\Vendor\\NoisyXApp.*)"); // the same name in events
    for (const bool inclusive : {true, false}) {
        SCOPED_TRACE(inclusive);
        const MonitorSettings settings = {stanzas, {"a<b", inclusive}};
        const auto json =
            nlohmann::json::parse(summarizeCapture(sample.open(), settings, SummaryForm::Json).text);
        EXPECT_EQ(json["records"], 2002);
        EXPECT_EQ(json["lost_reads"], 5);
        EXPECT_EQ(json["operations"].get<Counts>(), sample.operations);
        EXPECT_EQ(json["processes"].get<Counts>(), sample.processes);
        EXPECT_EQ(json["keys"].get<Counts>(), sample.keys);

        const std::vector<std::string> events = eventsOf(sample, settings);
        std::uint64_t matched = 0;
        std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> carried;
        for (const auto &stanza : json["stanzas"]) {
            const std::string name = stanza["name"];
            EXPECT_GE(stanza["tried"], stanza["matched"]) << name;
            EXPECT_EQ(stanza["matched"] == 0, name == "never") << name;
            matched += stanza["matched"].get<std::uint64_t>();
            carried[name].first += stanza["accepted"].get<std::uint64_t>();
            carried[name].second += stanza["bytes"].get<std::uint64_t>();
        }
        for (const auto &[name, counts] : carried) {
            std::uint64_t accepted = 0;
            std::uint64_t bytes = 0;
            for (const std::string &event : events) {
                if (event.starts_with("<event stanza=\"" + name + "\"")) {
                    ++accepted;
                    bytes += event.size();
                }
            }
            EXPECT_EQ(counts, std::pair(accepted, bytes)) << name;
        }
        EXPECT_EQ(json["stanzas"].size(), 4U);
        const std::uint64_t asked = 2000 - sample.keys.at("HKU\\.DEFAULT\\x");
        EXPECT_EQ(matched, inclusive ? events.size() : asked - events.size());
    }

    Stanzas disabled;
    disabled["WinRegMon://a"].set("disabled", "1");
    const auto without =
        nlohmann::json::parse(summarizeCapture(sample.open(), {disabled}, SummaryForm::Json).text);
    EXPECT_EQ(without["processes"].get<Counts>(), sample.processes);
    EXPECT_EQ(without["stanzas"].size(), 0U);
}

/// Whatever the stanzas look like: with its settings exactly the events of a source are gone.
TEST(Summary, GivesStanzasThatLeaveOutASourceOfNoiseAndNothingElse)
{
    const Sample sample = makeSample(600);
    const char *const hives[] = {".*",
                                 R"(HKLM\\SOFTWARE\\Vendor)",
                                 R"(HKLM\\SOFTWARE\\Vendor\\.*)",
                                 R"(\\REGISTRY\\MACHINE\\S.*)",
                                 R"(HKLM\\(SOFTWARE|SYSTEM)\\.*)",
                                 R"(HKU\\.*|\\registry\\machine\\software\\vendor\\Noisy[.|]App.*|.*\\x)",
                                 R"(HKLM\\SYSTEM\\CurrentControlSet\\.*)",
                                 R"(HKLM\\?.*)"};
    for (const char *const hive : hives) {
        for (const char *const proc : {".*", R"(C:\\Windows\\.*)", R"(^$|\\one\.exe|two)"}) {
            SCOPED_TRACE(std::string(hive) + " of " + proc);
            // What the second one lets pass, the first one has to give up as well.
            const Stanzas stanzas = stanzasOf(
                {{"a", hive, proc, "set|create|delete"}, {"b", R"(HKLM\\SOFTWARE\\.*)", "one", "create"}});
            CaptureCounts counts = countCapture(sample.open(), {stanzas});
            const Noise noise = findNoise(sample.open(), {stanzas}, counts);
            EXPECT_EQ(counts.all.events, eventsOf(sample, {stanzas}).size());
            EXPECT_FALSE(noise.processes.empty() || noise.keys.empty());
            for (const std::vector<NoiseSource> *sources : {&noise.processes, &noise.keys}) {
                for (const NoiseSource &source : *sources) {
                    if (!source.unchanged.empty()) {
                        EXPECT_EQ(hive, hives[std::size(hives) - 1]);
                        EXPECT_EQ(source.unchanged.front(), "WinRegMon://a");
                        continue;
                    }
                    Stanzas changed = stanzas;
                    for (const StanzaSetting &setting : source.settings) {
                        changed[setting.header].set(setting.key, setting.value);
                    }
                    EXPECT_EQ(source.streamWithout.events, counts.all.events - source.tally.events)
                        << source.name;
                    EXPECT_EQ(source.streamWithout.events, eventsOf(sample, {changed}).size()) << source.name;
                }
            }
        }
    }
}

TEST(Summary, NamesAKeyOfManyValuesBeforeThem)
{
    PathTree tree;
    for (int at = 0; at < 30; ++at) {
        const std::string value = "software\\key\\" + std::to_string(at);
        tree.add("HKLM\\" + value, "\\registry\\machine\\" + value, {1, 1, 300});
    }
    // Deeper than whoever walks the tree by calling itself can go.
    std::string deep = "HKLM";
    for (int left = 15'000; left > 0; --left) {
        deep += "\\d";
    }
    tree.add(deep, deep, {1, 1, 1000});
    const std::vector<const PathNode *> loudest = tree.loudest(2);
    EXPECT_EQ(loudest.at(0)->path, "HKLM\\software\\key");
    EXPECT_EQ(loudest.at(1)->path, deep);
    EXPECT_EQ(loudest.at(1)->filterPath, deep);
}

TEST(Summary, ReadsAsText)
{
    const Sample sample = makeSample(100);
    const Stanzas stanzas =
        stanzasOf({{"a", R"(HKLM\\SOFTWARE\\Vendor\\.*)", ".*", "set|create|delete"},
                   {"b", R"(HKLM\\SOFTWARE\\Vendor\\NoisyX.*)", ".*", "set|create|delete"}});
    const std::string text = summarizeCapture(sample.open(), {stanzas}, SummaryForm::Text).text;
    for (const char *const wanted :
         {"102 records from 2020-01-01 00:00:00 to 2020-", "; 5 reads lost", "  HKLM\n",
          "  SYSTEM\\ControlSet001\\Services\\x\n",
          "never matched: b; what it would match is let pass by a stanza asked before it\n",
          "  proc = ^(?!\\\\device\\\\[^\\\\]*\\\\Windows\\\\\\(two\\) \\+\\.exe\\z)\n",
          "  hive = HKLM\\\\SOFTWARE\\\\Vendor\\\\(?!NoisyXApp(\\\\|\\z)).*\n"}) {
        EXPECT_NE(text.find(wanted), std::string::npos) << wanted << "\nin\n" << text;
    }
    const std::string unasked =
        summarizeCapture(sample.open(),
                         {stanzasOf({{"a", R"((\\REGISTRY\\USER\\no|.*SOFTWARE)\\.*)", ".*", "set"}})},
                         SummaryForm::Text)
            .text;
    EXPECT_NE(unasked.find("never matched: a; the driver is not asked for what it would match\n"),
              std::string::npos);
}

} // namespace
} // namespace velmox
