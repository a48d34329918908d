#include "pipeline/input/record_processor.h"
#include "pipeline/input/stanza_configuration.h"
#include "testbed/record_builder.h"
#include "util/file_star.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace velmox {
namespace {

using testbed::Bytes;
using testbed::RecordFields;

// A number that no process of the system has: they are multiples of 4.
constexpr std::uint32_t kPid = 1000001;

// The processor with a group under both names, which the configuration never makes for processes.
class RecordProcessorTest : public testing::Test
{
protected:
    RecordProcessorTest()
        : out_(FileStar::tempFile()),
          emitter_([this](const Str &text) { bodies_.push_back(text); }, out_.get()),
          records_(rules_, hives_, statuses_, emitter_)
    {
        ProcessImageTable::instance().init();
        hives_.fill(u"\\REGISTRY\\USER\\S-1-5-21-0-0-0-1000");
        insert(kRegmonFilters, {});
        insert(kProcmonFilters, {{"type", "create|exit|image"}});
    }
    ~RecordProcessorTest() override { ProcessImageTable::instance().destroy(); }

    void insert(const char *name, const std::vector<std::pair<Str, Str>> &params)
    {
        std::map<Str, PropertiesMap> stanzas;
        PropertiesMap &stanza = stanzas["WinRegMon://all"];
        for (const auto &[key, value] : params) {
            stanza.set(key, value);
        }
        rules_.insert(name, makeFilterGroup(stanzas, {"main", true}, hives_));
    }

    void process(std::initializer_list<RecordFields> records)
    {
        const Bytes buffer = testbed::recordBuffer(records);
        records_.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    }

    static RecordFields setValue()
    {
        RecordFields record;
        record.pid = kPid;
        record.name = u"\\REGISTRY\\MACHINE\\SOFTWARE\\A";
        return record;
    }

    // The process image of the last event of a registry operation by `kPid`.
    std::string imageInEvents()
    {
        process({setValue()});
        const std::string body(bodies_.back().view());
        const std::size_t from = body.find("process_image=\"") + 15;
        return body.substr(from, body.find('"', from) - from);
    }

    MonitorRules rules_;
    HiveNames hives_;
    StatusTexts statuses_;
    FileStar out_;
    StrVector bodies_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

TEST_F(RecordProcessorTest, AnUnknownProcessBecomesKnownByTheFirstProgramMappedIntoIt)
{
    EXPECT_EQ(imageInEvents(), "N/A");
    process({testbed::imageLoaded(kPid, u"\\Device\\X\\a.dll"), testbed::imageLoaded(kPid, u".exe")});
    EXPECT_EQ(imageInEvents(), "N/A");
    process({testbed::imageLoaded(kPid, u"\\Device\\X\\a.ExE"),
             testbed::imageLoaded(kPid, u"\\Device\\X\\b.exe")});
    EXPECT_EQ(imageInEvents(), "\\Device\\X\\a.ExE");
}

TEST_F(RecordProcessorTest, ImageEventsTellProcessAndImage)
{
    RecordFields cut = testbed::imageLoaded(kPid, u"\\Device\\X\\a.dll");
    cut.status = 1;
    process({testbed::imageLoaded(kPid, u"\\Device\\X\\a.exe"), cut});
    ASSERT_EQ(bodies_.size(), 2u);
    EXPECT_EQ(bodies_[0],
              "pid=1000001\nprocess_image=\"\\Device\\X\\a.exe\"\nimage_path=\"\\Device\\X\\a.exe\"\n"
              "registry_type=\"ProcessImage\"\n\n");
    EXPECT_EQ(bodies_[1],
              "pid=1000001\nprocess_image=\"\\Device\\X\\a.exe\"\nimage_path=\"\\Device\\X\\a.dll...\"\n"
              "registry_type=\"ProcessImage\"\n\n");
}

TEST_F(RecordProcessorTest, CreationTellsTheNewImageAndWhatTheNumberStoodForBefore)
{
    const DWORD self = GetCurrentProcessId();
    process({testbed::processCreated(self, 8, u"NT\\me"), testbed::processCreated(kPid, 8, u"")});
    ASSERT_EQ(bodies_.size(), 2u);
    EXPECT_TRUE(bodies_[0].startsWith("parent_pid=8\nparent_process_image=\"N/A\"\npid="));
    EXPECT_TRUE(
        bodies_[0].contains("input-tests.exe\"\nregistry_type=\"ProcessCreated\"\nuser=\"NT\\me\"\n\n"));
    EXPECT_EQ(bodies_[1], "parent_pid=8\nparent_process_image=\"N/A\"\npid=1000001\nprocess_image=\"N/A\"\n"
                          "registry_type=\"ProcessCreated\"\nuser=\"\"\n\n");
}

TEST_F(RecordProcessorTest, AnExitedProcessPrintsItsOwnImageTwiceAndStaysKnown)
{
    process({testbed::processExited(kPid, 8)});
    EXPECT_EQ(bodies_[0], "parent_pid=8\nparent_process_image=\"N/A\"\npid=1000001\nprocess_image=\"N/A\"\n"
                          "registry_type=\"ProcessExited\"\n\n");
    process({testbed::imageLoaded(kPid, u"\\Device\\X\\a.exe"), testbed::processExited(kPid, 8)});
    EXPECT_EQ(bodies_[2], "parent_pid=8\nparent_process_image=\"\\Device\\X\\a.exe\"\npid=1000001\n"
                          "process_image=\"\\Device\\X\\a.exe\"\nregistry_type=\"ProcessExited\"\n\n");
    EXPECT_EQ(imageInEvents(), "\\Device\\X\\a.exe");
}

TEST_F(RecordProcessorTest, ATimeWithinAMillisecondOrOlderIsThatOfTheLastConversion)
{
    RecordFields first = setValue();
    first.timestamp += 9'995'000; // events tell seconds: half a millisecond ahead of the next
    RecordFields soon = setValue();
    RecordFields old = setValue();
    RecordFields later = setValue();
    soon.timestamp = first.timestamp + 10000;
    old.timestamp = first.timestamp - 50'000'000;
    later.timestamp = first.timestamp + 20'000'000;
    process({first, soon, old, later});
    std::fflush(out_.get());
    std::rewind(out_.get());
    Str line;
    StrVector times;
    while (out_.readLine(line)) {
        if (line.startsWith("<time>")) {
            times.push_back(line);
        }
    }
    EXPECT_EQ(times, (StrVector{"<time>1577836800</time>", "<time>1577836800</time>",
                                "<time>1577836800</time>", "<time>1577836802</time>"}));
}

TEST_F(RecordProcessorTest, OtherClassesAreSkippedAndTheRecordBehindThemIsFound)
{
    RecordFields unknown = setValue();
    unknown.recordClass = 5;
    unknown.data = {1, 2, 3};
    process({unknown, setValue()});
    EXPECT_EQ(bodies_.size(), 1u);
    records_.processData(nullptr, 0);
    EXPECT_EQ(bodies_.size(), 1u);
}

// 16-bit text of odd and even bytes, half surrogates and markup.
RecordFields randomRecord(std::mt19937 &random)
{
    const auto pick = [&](unsigned count) { return static_cast<unsigned>(random()) % count; };
    constexpr std::u16string_view kPieces[] = {
        u"\\",         u"a",      u"\n</event>\n<event stanza=\"x\">\n",
        u"]]>",        u"&#10;",  u"\xD800",
        u"\xDC00",     u"\x0001", u".exe",
        u"\"\n<data>", u"\x0000"};
    RecordFields record;
    constexpr std::uint32_t kClasses[] = {kRegistryRecord, kProcessRecord, kImageRecord, 3};
    record.recordClass = kClasses[pick(4)];
    record.operation = pick(50);
    record.status = static_cast<std::uint32_t>(random());
    record.pid = kPid + pick(3);
    record.dataType = pick(13);
    record.timestamp += random();
    record.name.clear();
    for (unsigned count = pick(300) == 0 ? 20'000 : pick(12); count > 0; --count) {
        record.name += kPieces[pick(std::size(kPieces))];
    }
    for (unsigned count = pick(8); count > 0; --count) {
        const Bytes piece = testbed::textData(kPieces[pick(std::size(kPieces))]);
        record.data.insert(record.data.end(), piece.begin(), piece.end());
    }
    record.data.resize(record.data.size() + pick(2));
    return record;
}

TEST_F(RecordProcessorTest, NoRecordAddsALineOfMarkup)
{
    std::mt19937 random(8);
    std::size_t registryRecords = 0;
    for (int round = 0; round < 300; ++round) {
        Bytes buffer;
        for (int count = 0; count < 10; ++count) {
            const RecordFields record = randomRecord(random);
            registryRecords += record.recordClass == kRegistryRecord;
            testbed::appendRecord(buffer, record);
        }
        records_.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    }
    EXPECT_GT(bodies_.size(), registryRecords);

    std::map<std::string, std::size_t> tags;
    std::rewind(out_.get());
    for (Str line; out_.readLine(line);) {
        if (line.startsWith("<")) {
            ++tags[std::string(line.view().substr(0, line.find('>')))];
        }
    }
    const std::size_t events = bodies_.size();
    const std::map<std::string, std::size_t> expected = {
        {"<stream", 1},      {"<event stanza=\"all\"", events}, {"<time", events},  {"<data", events},
        {"<source", events}, {"<sourcetype", events},           {"<index", events}, {"</event", events}};
    EXPECT_EQ(tags, expected);
}

} // namespace
} // namespace velmox
