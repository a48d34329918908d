#include "pipeline/input/events/record_processor.h"
#include "testbed/record_builder.h"
#include "tests/pipeline/input/rules/stanzas.h"
#include "util/files/file_star.h"

namespace velmox {
namespace {

using testbed::Bytes;
using testbed::imageLoaded;
using testbed::processCreated;
using testbed::processExited;
using testbed::RecordFields;

// A number that no process of the system has: they are multiples of 4.
constexpr std::uint32_t kPid = 1000001;

// The processor with a group under both names, which the configuration never makes for processes.
class RecordProcessorTest : public ::testing::Test
{
protected:
    RecordProcessorTest()
        : out_(FileStar::tempFile()),
          emitter_([this](const Str &text) { bodies_.push_back(text); }, out_.get()),
          records_(rules_, all_.hives, statuses_, emitter_)
    {
        ProcessImageTable::instance().init();
        rules_.insert(kRegmonFilters, all_.add("WinRegMon://all").group());
        rules_.insert(kProcmonFilters, all_.add("WinRegMon://all", {{"type", "create|exit|image"}}).group());
    }
    ~RecordProcessorTest() override { ProcessImageTable::instance().destroy(); }

    /// The bodies of the events.
    StrVector process(std::initializer_list<RecordFields> records)
    {
        bodies_.clear();
        const Bytes buffer = testbed::recordBuffer(records);
        records_.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
        return bodies_;
    }

    static RecordFields setValue() { return {.pid = kPid, .name = u"\\REGISTRY\\MACHINE\\SOFTWARE\\A"}; }

    // The process image of an event of a registry operation by `kPid`.
    std::string imageInEvents()
    {
        const std::string body(process({setValue()}).at(0).view());
        const std::size_t from = body.find("process_image=\"") + 15;
        return body.substr(from, body.find('"', from) - from);
    }

    testing::StanzaSet all_;
    MonitorRules rules_;
    StatusTexts statuses_;
    FileStar out_;
    StrVector bodies_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

TEST_F(RecordProcessorTest, TellsTheLivesOfProcessesAndLearnsTheirImages)
{
    const auto exited = [](const char *image) {
        return StrVector{Str::fromFormat("parent_pid=8\nparent_process_image=\"%s\"\npid=1000001\n"
                                         "process_image=\"%s\"\nregistry_type=\"ProcessExited\"\n\n",
                                         image, image)};
    };
    const auto loaded = [](const char *image, const char *path) {
        return Str::fromFormat("pid=1000001\nprocess_image=\"%s\"\nimage_path=\"%s\"\n"
                               "registry_type=\"ProcessImage\"\n\n",
                               image, path);
    };
    EXPECT_EQ(imageInEvents(), "N/A");
    EXPECT_EQ(process({processExited(kPid, 8)}), exited("N/A"));
    EXPECT_EQ(process({imageLoaded(kPid, u"\\Device\\X\\a.dll"), imageLoaded(kPid, u".exe")}),
              (StrVector{loaded("N/A", "\\Device\\X\\a.dll"), loaded("N/A", ".exe")}));
    EXPECT_EQ(imageInEvents(), "N/A");
    RecordFields cut = imageLoaded(kPid, u"\\Device\\X\\b.exe");
    cut.status = 1;
    EXPECT_EQ(process({imageLoaded(kPid, u"\\Device\\X\\a.ExE"), cut}),
              (StrVector{loaded("\\Device\\X\\a.ExE", "\\Device\\X\\a.ExE"),
                         loaded("\\Device\\X\\a.ExE", "\\Device\\X\\b.exe...")}));
    EXPECT_EQ(imageInEvents(), "\\Device\\X\\a.ExE");
    EXPECT_EQ(process({processExited(kPid, 8)}), exited("\\Device\\X\\a.ExE"));
    EXPECT_EQ(imageInEvents(), "\\Device\\X\\a.ExE") << "for a while";
    EXPECT_EQ(process({processCreated(kPid, 8, u"")}),
              StrVector{"parent_pid=8\nparent_process_image=\"\\Device\\X\\a.ExE\"\npid=1000001\n"
                        "process_image=\"N/A\"\nregistry_type=\"ProcessCreated\"\nuser=\"\"\n\n"});
    const Str created = process({processCreated(GetCurrentProcessId(), 8, u"NT\\me")}).at(0);
    EXPECT_TRUE(created.startsWith("parent_pid=8\nparent_process_image=\"N/A\"\npid="));
    EXPECT_TRUE(created.contains("input-tests.exe\"\nregistry_type=\"ProcessCreated\"\nuser=\"NT\\me\"\n\n"));
}

TEST_F(RecordProcessorTest, AnUnknownProcessHasNoNameForTheFilters)
{
    MonitorRules nameless;
    nameless.insert(kRegmonFilters, testing::StanzaSet().add("WinRegMon://x", {{"proc", "^$"}}).group());
    RecordProcessor records(nameless, all_.hives, statuses_, emitter_);
    RecordFields unknown = setValue();
    unknown.pid += 4;
    const Bytes buffer =
        testbed::recordBuffer({imageLoaded(kPid, u"\\Device\\X\\a.exe"), setValue(), unknown, setValue()});
    records.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    ASSERT_EQ(bodies_.size(), 1u);
    EXPECT_TRUE(bodies_[0].contains("pid=1000005\nprocess_image=\"N/A\"\n"));
}

/// Bytes that end where the process may not read on.
class GuardedBytes
{
public:
    explicit GuardedBytes(const Bytes &bytes)
        : memory_(static_cast<unsigned char *>(
              VirtualAlloc(nullptr, 2 * kRoom, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE))),
          start_(memory_ + kRoom - bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), start_);
        DWORD before = 0;
        VirtualProtect(memory_ + kRoom, kRoom, PAGE_NOACCESS, &before);
    }
    ~GuardedBytes() { VirtualFree(memory_, 0, MEM_RELEASE); }
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;

    const unsigned char *start() const { return start_; }

private:
    static constexpr std::size_t kRoom = 65536;

    unsigned char *memory_;
    unsigned char *start_;
};

// Whole records of all kinds, at odd addresses too, with names of any units and data too short for its type.
TEST_F(RecordProcessorTest, ReadsNothingBehindABufferAndReportsEachAcceptedRecordOnce)
{
    std::mt19937 dice(16);
    const auto pick = [&dice](unsigned count) { return static_cast<unsigned>(dice() % count); };
    for (int round = 0; round < 2000; ++round) {
        std::vector<RecordFields> records(pick(6));
        std::vector<Str> expected;
        for (RecordFields &record : records) {
            record.recordClass = pick(4) == 0 ? 3 : 1;
            record.operation = pick(2) == 0 ? 16 : 14; // a value that is set, a key that is closed
            record.dataType = pick(13);
            record.pid = 8 * static_cast<std::uint32_t>(expected.size()) + 1;
            record.name.assign(pick(40), pick(3) == 0 ? u'\xD800' : u'K');
            record.data.assign(pick(20), static_cast<unsigned char>(pick(3) * 'a'));
            if (record.recordClass == 1 && record.operation == 16) {
                expected.push_back(Str::fromFormat("\npid=%u\n", record.pid));
            }
        }
        const Bytes bytes = testbed::recordBuffer(records);
        const GuardedBytes guarded(bytes);
        bodies_.clear();
        records_.processData(guarded.start(), static_cast<std::uint32_t>(bytes.size()));
        ASSERT_EQ(bodies_.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_TRUE(bodies_[i].contains(expected[i])) << bodies_[i].c_str();
        }
    }
}

} // namespace
} // namespace velmox
