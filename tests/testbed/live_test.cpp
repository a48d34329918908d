#include "testbed/driver/trace_wire.h"
#include "testbed/driver_control.h"
#include "testbed/driver_service.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace velmox::testbed {

namespace {

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

/// Runs a program to its end; its exit code.
DWORD runProgram(std::wstring commandLine)
{
    STARTUPINFOW startup = {.cb = sizeof startup};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return 0xFFFFFFFF;
    const KernelHandle thread(process.hThread);
    const KernelHandle handle(process.hProcess);
    DWORD exitCode = 0xFFFFFFFF;
    WaitForSingleObject(handle.get(), 30'000);
    GetExitCodeProcess(handle.get(), &exitCode);
    return exitCode;
}

class LiveTest : public testing::Test
{
protected:
    LiveTest()
    {
        removeDriverService();
        setLiveAtStart(true);
        startDriverService();
        setLiveAtStart(false);
    }
    ~LiveTest() override { removeDriverService(); }

    /// Collects records whose name contains `part` until `last` has come for one of them.
    static std::vector<Seen> collect(TestDriver &driver, std::u16string_view part,
                                     std::uint32_t lastOperation, std::u16string_view lastEnding)
    {
        std::vector<Seen> records;
        const bool came = driver.waitFor([&](const VelmoxTestState &) {
            for (const Seen &one : parse(driver.read(65536).bytes))
                if (one.name.find(part) != std::u16string::npos)
                    records.push_back(one);
            return !records.empty() && records.back().header.operation == lastOperation &&
                   records.back().name.ends_with(lastEnding);
        });
        EXPECT_TRUE(came);
        return records;
    }
};

std::string describe(const Seen &record, std::u16string_view home)
{
    const std::u16string_view below = std::u16string_view(record.name).substr(record.name.find(home));
    return std::to_string(record.header.operation) + " " + std::string(below.begin(), below.end());
}

std::vector<std::string> describe(const std::vector<Seen> &records, std::u16string_view home)
{
    std::vector<std::string> lines;
    for (const Seen &one : records)
        lines.push_back(describe(one, home));
    return lines;
}

TEST_F(LiveTest, seesWhatRegDoes)
{
    TestDriver driver;
    ASSERT_EQ(driver.state().live, 1u);
    EXPECT_GT(driver.state().liveKeys, 100u);
    driver.setFilter(everything());
    driver.startLive(kWriter);
    const std::wstring key = L"HKLM\\Software\\VelmoxLive";
    ASSERT_EQ(runProgram(L"reg.exe add " + key + L" /v Number /t REG_DWORD /d 7 /f"), 0u);
    std::vector<Seen> records = collect(driver, u"\\VelmoxLive", 16, u"\\Number");
    ASSERT_EQ(describe(records, u"VelmoxLive"),
              (std::vector<std::string>{"27 VelmoxLive", "16 VelmoxLive\\Number"}));
    EXPECT_EQ(records[1].name, u"\\REGISTRY\\MACHINE\\Software\\VelmoxLive\\Number");
    EXPECT_EQ(records[1].header.dataType, 4u);
    EXPECT_EQ(records[1].data, dwordData(7));
    EXPECT_EQ(records[1].header.pid, kWriter);
    EXPECT_EQ(records[1].header.status, 0u);

    ASSERT_EQ(runProgram(L"reg.exe add " + key + L" /v Number /t REG_DWORD /d 8 /f"), 0u);
    records = collect(driver, u"\\VelmoxLive", 16, u"\\Number");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].data, dwordData(8));

    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
    EXPECT_LE(records[0].header.timestamp, ticks);
    EXPECT_GT(records[0].header.timestamp, ticks - 600'000'000);

    ASSERT_EQ(runProgram(L"reg.exe delete " + key + L" /v Number /f"), 0u);
    records = collect(driver, u"\\VelmoxLive", 17, u"\\Number");
    EXPECT_EQ(records.size(), 1u);
    ASSERT_EQ(runProgram(L"reg.exe delete " + key + L" /f"), 0u);
    records = collect(driver, u"\\VelmoxLive", 15, u"\\VelmoxLive");
    EXPECT_EQ(records.size(), 1u);
}

TEST_F(LiveTest, seesTheExercisersRound)
{
    TestDriver driver;
    driver.setFilter(everything());
    ASSERT_EQ(runProgram(L"" VELMOX_REGISTRY_EXERCISER " --pause 300"), 0u);
    const std::vector<Seen> records = collect(driver, u"\\VelmoxExercise", 15, u"\\VelmoxExercise");
    const std::u16string home = u"VelmoxExercise";
    EXPECT_EQ(describe(records, home), (std::vector<std::string>{
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
                                       }));
    EXPECT_TRUE(records[0].name.starts_with(u"\\REGISTRY\\User\\S-1-5-21-"));
    EXPECT_EQ(records[16].data, textData(u"Renamed"));
}

TEST_F(LiveTest, seesProcessesComeAndGo)
{
    TestDriver driver;
    driver.setFilter({.events = 6, .status = 0x17, .ops = 0, .hives = 0});
    const std::u16string image = u"\\ping.exe";
    ASSERT_EQ(runProgram(L"ping.exe -n 2 127.0.0.1"), 0u);
    std::vector<Seen> records;
    std::uint32_t pid = 0;
    EXPECT_TRUE(driver.waitFor([&](const VelmoxTestState &) {
        for (const Seen &one : parse(driver.read(65536).bytes)) {
            records.push_back(one);
            if (one.header.recordClass == 4 && one.name.ends_with(image))
                pid = one.header.pid;
            if (pid && one.header.pid == pid && one.header.recordClass == 2 && one.header.operation == 0)
                return true;
        }
        return false;
    }));
    ASSERT_NE(pid, 0u);
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
