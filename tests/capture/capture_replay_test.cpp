#include "capture/file/capture_reader.h"
#include "capture/record/recording.h"
#include "capture/replay/capture_replay.h"
#include "pipeline/input/events/process_image_table.h"
#include "tests/capture/random_input.h"

namespace velmox {
namespace {

/// A machine with summer time, a time that none has, and processes of which some can't be asked.
class OddMachine : public Machine
{
public:
    bool localTime(Timeval utc, Timeval &local) override
    {
        const std::uint64_t day = utc.ticks() / Timeval::kTicksPerSecond / 86'400;
        local = Timeval(utc.ticks() - (day % 365 < 180 ? 5u : 4u) * 3600 * Timeval::kTicksPerSecond);
        return utc.ticks() / Timeval::kTicksPerSecond % 11 != 0;
    }
    bool processImage(std::uint32_t pid, char16_t *out) override
    {
        const std::u16string image = u"\\Device\\HarddiskVolume1\\new\\p4.exe";
        out[image.copy(out, image.size())] = u'\0';
        return (pid + ticks) % 3 != 0;
    }
    std::uint32_t tickCount() const override { return ticks; }
    DriveMap &drives() override { return drives_; }

    std::uint32_t ticks = 0xFFFFF000;

private:
    DriveMap drives_{DriveMappings{{"c:", "\\device\\harddiskvolume1"}}};
};

const CaptureStart kStart = {
    .filter = {7, 0x17, 127, 3},
    .userPath = u"\\REGISTRY\\USER\\S-1-5-21-7",
    .controlSet = 2,
    .drives = {{"c:", "\\device\\harddiskvolume1"}},
    .processes = {{1'000'001, u"\\Device\\HarddiskVolume1\\p1.exe"}, {1'000'005, u"System"}}};

unsigned long errorOf(long status)
{
    return status < 0 ? 5 : 0;
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

std::string contents(std::FILE *file)
{
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
    return text;
}

/// What the monitor writes of the buffers: its rooms, joined as the monitor joins them.
std::string liveStream(const std::vector<testbed::Bytes> &buffers, const Stanzas &stanzas,
                       const StanzaDefaults &defaults)
{
    const File out(std::tmpfile(), std::fclose);
    OddMachine machine;
    ProcessImageTable &table = ProcessImageTable::instance();
    table.init(machine);
    for (const CapturedProcess &process : kStart.processes) {
        table.add(process.pid, process.image.c_str());
    }
    {
        HiveNames hives;
        hives.fill(kStart.userPath);
        hives.setActiveControlSet(kStart.controlSet);
        MonitorRules rules;
        rules.insert(kRegmonFilters, makeFilterGroup(stanzas, defaults, hives, machine.drives()));
        StatusTexts statuses;
        statuses.setMapping(errorOf);
        EventEmitter emitter([](const Str &) {}, out.get(), machine, LineEnds::CrLf);
        RecordProcessor records(rules, hives, statuses, emitter, machine);
        for (const testbed::Bytes &buffer : buffers) {
            machine.ticks += 1700;
            records.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
        }
    }
    table.destroy();
    return contents(out.get());
}

std::string recorded(const std::vector<testbed::Bytes> &buffers, const CaptureStart &start)
{
    std::string file;
    CaptureWriter writer([&file](std::string_view bytes) { file += bytes; });
    writer.write(start);
    OddMachine machine;
    StatusTexts statuses;
    statuses.setMapping(errorOf);
    Recording recording(machine, statuses, writer);
    for (const testbed::Bytes &buffer : buffers) {
        machine.ticks += 1700;
        recording.take(buffer, 0);
    }
    recording.end(0);
    return file;
}

std::string replayed(std::string_view file, const Stanzas &stanzas, const StanzaDefaults &defaults)
{
    const File out(std::tmpfile(), std::fclose);
    CaptureReader reader([file](char *bytes, std::size_t wanted) mutable {
        const std::size_t count = file.copy(bytes, wanted);
        file.remove_prefix(count);
        return count;
    });
    {
        CaptureReplay replay(reader.start(), stanzas, defaults, out.get());
        for (CapturedBuffer buffer; reader.next(buffer);) {
            replay.take(buffer);
        }
    }
    EXPECT_FALSE(reader.isCut());
    return contents(out.get());
}

TEST(CaptureReplay, GivesTheMonitorsStreamOfAnyCaptureByAnyDocument)
{
    std::size_t events = 0;
    for (unsigned seed = 0; seed < 100; ++seed) {
        testing::RandomInput input(seed);
        const Stanzas stanzas = input.stanzas();
        const StanzaDefaults defaults = {input.below(2) == 0 ? "default" : "other", input.below(4) != 0};
        std::vector<testbed::Bytes> buffers;
        for (unsigned left = 1 + input.below(20); left > 0; --left) {
            buffers.push_back(input.buffer());
        }
        // The driver was asked for what the document asks for, and has given more, as no driver should.
        CaptureStart start = kStart;
        start.filter.ops = start.filter.hives = 0;
        const std::string live = liveStream(buffers, stanzas, defaults);
        EXPECT_EQ(replayed(recorded(buffers, start), stanzas, defaults), live) << seed;
        events += static_cast<std::size_t>(std::ranges::count(live, '&'));
    }
    EXPECT_GT(events, 1000u) << "too little is compared";
}

TEST(CaptureReplay, LeavesOutWhatTheDriverWouldNotHaveReported)
{
    const struct
    {
        MonitorFilterConfig recorded, asked;
        std::size_t left;
        bool isIncomplete;
    } rows[] = {
        {{7, 23, 127, 3}, {7, 23, 127, 3}, 7, false}, {{7, 23, 127, 3}, {7, 23, 4, 3}, 6, false},
        {{7, 23, 127, 3}, {7, 23, 127, 1}, 5, false}, {{7, 23, 127, 3}, {7, 23, 127, 2}, 6, false},
        {{7, 23, 127, 3}, {7, 23, 0, 0}, 4, false},   {{}, {7, 23, 4, 2}, 5, false},
        {{7, 23, 4, 2}, {7, 23, 12, 2}, 7, true},     {{7, 23, 4, 2}, {7, 23, 4, 3}, 7, true},
    };
    const testbed::Bytes records = testbed::recordBuffer({{.name = u"\\Registry\\User\\x"},
                                                          {.operation = 18, .name = u"\\REGISTRY\\MACHINERY"},
                                                          {},
                                                          testbed::processCreated(4, 8, u"me"),
                                                          {.operation = 15},
                                                          {.operation = 20, .name = u""},
                                                          testbed::imageLoaded(4, u"\\REGISTRY\\MACHINE")});
    for (const auto &row : rows) {
        const AskedRecords asked(row.recorded, row.asked);
        std::size_t left = 0;
        asked.pass(records,
                   [&left](std::span<const unsigned char> piece) { left += testbed::countRecords(piece); });
        EXPECT_EQ(left, row.left) << &row - rows;
        EXPECT_EQ(asked.isIncomplete(), row.isIncomplete) << &row - rows;
    }
}

} // namespace
} // namespace velmox
