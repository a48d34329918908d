#include "testbed/driver/trace_wire.h"
#include "testbed/driver_control.h"
#include "testbed/driver_service.h"
#include "tests/support/child_process.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace velmox::testbed {

namespace {

using velmox::testing::ChildProcess;

constexpr std::uint32_t kWriter = 4444;

struct Seen
{
    VelmoxRecordHeader header;
    std::u16string name;
    Bytes data;
};

std::vector<Seen> parse(const Bytes &bytes)
{
    std::vector<Seen> records;
    for (std::size_t at = 0; at < bytes.size();) {
        Seen one;
        std::memcpy(&one.header, &bytes[at], sizeof one.header);
        at += sizeof one.header;
        one.name.resize(one.header.nameBytes / sizeof(char16_t));
        std::memcpy(one.name.data(), &bytes[at], one.header.nameBytes);
        at += one.header.nameBytes + sizeof(char16_t);
        one.data.assign(&bytes[at], &bytes[at] + one.header.dataBytes);
        at += one.header.dataBytes;
        records.push_back(one);
    }
    return records;
}

bool run(const char *commandLine)
{
    return ChildProcess(commandLine).exitCode() == 0;
}

std::string describe(const Seen &record, std::u16string_view home)
{
    const std::u16string_view below = std::u16string_view(record.name).substr(record.name.find(home));
    return std::to_string(record.header.operation) + " " + std::string(below.begin(), below.end());
}

class LiveTest : public ::testing::Test
{
protected:
    LiveTest()
    {
        removeDriverService();
        setLiveAtStart(true);
        startDriverService();
        setLiveAtStart(false);
        driver.emplace();
        driver->setFilter(everything());
    }
    ~LiveTest() override
    {
        driver.reset();
        removeDriverService();
    }

    /// Collects the records of the key that is `home` and those below, until the last one of `lines` has
    /// come.
    std::vector<Seen> expectSeen(std::u16string_view home, const std::vector<std::string> &lines)
    {
        std::vector<Seen> records;
        std::vector<std::string> seen;
        driver->waitFor([&](const VelmoxTestState &) {
            for (const Seen &one : parse(driver->read(65536).bytes)) {
                if (one.name.find(home) != std::u16string::npos) {
                    records.push_back(one);
                    seen.push_back(describe(one, home));
                }
            }
            return !seen.empty() && seen.back() == lines.back();
        });
        EXPECT_EQ(seen, lines);
        records.resize(lines.size());
        return records;
    }

    std::optional<TestDriver> driver;
};

TEST_F(LiveTest, seesWhatRegDoes)
{
    ASSERT_EQ(driver->state().live, 1u);
    EXPECT_GT(driver->state().liveKeys, 100u);
    driver->startLive(kWriter);
    const struct
    {
        const char *command;
        std::vector<std::string> lines;
        Bytes data;
    } rows[] = {
        {"reg.exe add HKLM\\Software\\VelmoxLive /v Number /t REG_DWORD /d 7 /f",
         {"27 VelmoxLive", "16 VelmoxLive\\Number"},
         dwordData(7)},
        {"reg.exe add HKLM\\Software\\VelmoxLive /v Number /t REG_DWORD /d 8 /f",
         {"16 VelmoxLive\\Number"},
         dwordData(8)},
        {"reg.exe delete HKLM\\Software\\VelmoxLive /v Number /f", {"17 VelmoxLive\\Number"}, {}},
        {"reg.exe delete HKLM\\Software\\VelmoxLive /f", {"15 VelmoxLive"}, {}},
    };
    for (const auto &row : rows) {
        ASSERT_TRUE(run(row.command));
        const Seen last = expectSeen(u"VelmoxLive", row.lines).back();
        EXPECT_TRUE(last.name.starts_with(u"\\REGISTRY\\MACHINE\\Software\\VelmoxLive"));
        EXPECT_EQ(last.header.dataType, row.data.empty() ? 0u : 4u);
        EXPECT_EQ(last.data, row.data);
        EXPECT_EQ(last.header.pid, kWriter);
        EXPECT_EQ(last.header.status, 0u);
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
        EXPECT_LE(last.header.timestamp, ticks);
        EXPECT_GT(last.header.timestamp, ticks - 600'000'000);
    }
}

TEST_F(LiveTest, seesTheExercisersRound)
{
    ASSERT_TRUE(run("\"" VELMOX_REGISTRY_EXERCISER "\" --pause 300"));
    const std::vector<Seen> records =
        expectSeen(u"VelmoxExercise", {
                                          "27 VelmoxExercise",
                                          "27 VelmoxExercise\\Types",
                                          "16 VelmoxExercise\\Types\\none",
                                          "16 VelmoxExercise\\Types\\string",
                                          "16 VelmoxExercise\\Types\\expand",
                                          "16 VelmoxExercise\\Types\\binary",
                                          "16 VelmoxExercise\\Types\\dword",
                                          "16 VelmoxExercise\\Types\\bigEndian",
                                          "16 VelmoxExercise\\Types\\link",
                                          "16 VelmoxExercise\\Types\\list",
                                          "16 VelmoxExercise\\Types\\qword",
                                          "16 VelmoxExercise\\Types",
                                          "16 VelmoxExercise\\Types\\dword",
                                          "16 VelmoxExercise\\Types\\newName",
                                          "27 VelmoxExercise\\Types\\Below",
                                          "16 VelmoxExercise\\Types\\Below\\deep",
                                          "19 VelmoxExercise\\Types",
                                          "15 VelmoxExercise\\Renamed\\Below",
                                          "15 VelmoxExercise\\Renamed",
                                          "15 VelmoxExercise",
                                      });
    EXPECT_TRUE(records[0].name.starts_with(u"\\REGISTRY\\User\\S-1-5-21-"));
    EXPECT_EQ(records[16].data, textData(u"Renamed"));
}

TEST_F(LiveTest, seesProcessesComeAndGo)
{
    driver->setFilter({.events = 6, .status = 0x17, .ops = 0, .hives = 0});
    ASSERT_TRUE(run("ping.exe -n 2 127.0.0.1"));
    std::vector<Seen> records;
    std::uint32_t pid = 0;
    EXPECT_TRUE(driver->waitFor([&](const VelmoxTestState &) {
        for (const Seen &one : parse(driver->read(65536).bytes)) {
            records.push_back(one);
            const VelmoxRecordHeader &header = one.header;
            if (header.recordClass == 4 && one.name.ends_with(u"\\ping.exe"))
                pid = header.pid;
            if (pid && header.pid == pid && header.recordClass == 2 && header.operation == 0)
                return true;
        }
        return false;
    }));
    std::erase_if(records, [&](const Seen &one) { return one.header.pid != pid; });
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].header.recordClass, 2u);
    EXPECT_EQ(records[0].header.operation, 1u);
    EXPECT_EQ(records[0].header.parentPid, GetCurrentProcessId());
    EXPECT_TRUE(records[0].name.starts_with(u"S-1-5-"));
    EXPECT_TRUE(records[1].name.starts_with(u"\\Device\\HarddiskVolume"));
}

} // namespace

} // namespace velmox::testbed
