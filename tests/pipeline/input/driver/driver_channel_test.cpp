#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/shared_state.h"
#include "tests/pipeline/input/driver/scripted_device.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace velmox {
namespace {

using testing::Answer;
using testing::FailingCall;
using testing::ReplacedCall;
using testing::ScriptedDevice;

/// The sizes of a buffer that grows so often, and stays as it is after that.
std::vector<DWORD> grown(DWORD times, std::size_t reads)
{
    std::vector<DWORD> sizes;
    for (DWORD size = 8192; sizes.size() < reads; size += sizes.size() <= times ? 4096 : 0) {
        sizes.push_back(size);
    }
    return sizes;
}

TEST(DriverReader, RetriesDropsGrowsOrEndsAsTheFailureHasIt)
{
    const Answer tooSmall{ERROR_INSUFFICIENT_BUFFER, 0};
    const std::vector<Answer> full(40, Answer{0, 60});
    const struct
    {
        const char *what;
        std::vector<Answer> reads;
        SIZE_T workingSet;
        DWORD memoryError;
        int allocations; // before the one that fails; -1 for none
        std::vector<DWORD> sizes;
        std::size_t queued;
        bool endsByItself;
    } rows[] = {
        {"reads", {{0, 60}, {0, 61}}, 524287999, 0, -1, grown(0, 3), 2, false},
        {"grows", {tooSmall, tooSmall, {0, 60}, {0, 60}}, 0, 0, -1, grown(2, 5), 2, false},
        {"has a ceiling", std::vector<Answer>(20, tooSmall), 0, 0, -1, grown(14, 15), 0, true},
        {"lost the driver", {{ERROR_DEVICE_NOT_CONNECTED, 60}, {0, 60}}, 0, 0, -1, grown(0, 3), 1, false},
        {"at the limit of memory", {{0, 60}, {0, 61}}, 524288000, 0, -1, grown(0, 3), 0, false},
        {"knows no memory", {{0, 60}}, 0, ERROR_ACCESS_DENIED, -1, grown(0, 1), 0, true},
        {"gets no buffer", {{0, 60}}, 0, 0, 0, {}, 0, true},
        {"has a full queue", full, 0, 0, 32, grown(0, 32), 31, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        ScriptedDevice script;
        script.reads = row.reads;
        script.workingSet = row.workingSet;
        script.memoryError = row.memoryError;
        script.sizes.reserve(100);
        StopFlag stop;
        script.atEnd = [&stop] { stop.set(); };
        BufferQueue queue;
        DeviceChannel device;
        ASSERT_TRUE(device.open());
        const LONG before = registry_evt_total;
        {
            const FailingCall exhausted("malloc", 0, ERROR_NOT_ENOUGH_MEMORY, std::max(row.allocations, 0),
                                        row.allocations < 0 ? 0 : 1);
            DriverReader(device, queue, stop).run();
        }
        EXPECT_EQ(stop.isSet(), !row.endsByItself);
        EXPECT_EQ(script.sizes, row.sizes);
        std::size_t queued = 0;
        for (EventBuffer buffer; queue.get(buffer, 0); ++queued) {
            EXPECT_EQ(buffer.bytes, 60u + (row.reads[queued].bytes == 61)) << queued;
        }
        EXPECT_EQ(queued, row.queued);
        EXPECT_EQ(registry_evt_total - before, static_cast<LONG>(row.queued));
    }
}

std::atomic<bool> isTakerAsleep = false;

/// Called with the lock held, which is free again only when the thread sleeps.
BOOL WINAPI noteSleep(CONDITION_VARIABLE *condition, SRWLOCK *lock, DWORD milliseconds, ULONG flags)
{
    isTakerAsleep = true;
    const auto sleep = reinterpret_cast<decltype(SleepConditionVariableSRW) *>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SleepConditionVariableSRW")));
    return sleep(condition, lock, milliseconds, flags);
}

TEST(DriverReader, WakesTheTakerBeforeItGrowsDropsOrEnds)
{
    const struct
    {
        const char *what;
        Answer read;
        SIZE_T workingSet;
        DWORD memoryError;
    } rows[] = {
        {"grows", {ERROR_INSUFFICIENT_BUFFER, 0}, 0, 0},
        {"drops", {0, 60}, 524288000, 0},
        {"ends", {0, 60}, 0, ERROR_ACCESS_DENIED},
    };
    for (const auto &row : rows) {
        constexpr auto kSoon = std::chrono::seconds(10);
        ScriptedDevice script;
        script.reads = {row.read};
        script.workingSet = row.workingSet;
        script.memoryError = row.memoryError;
        BufferQueue queue;
        StopFlag stop;
        std::atomic<bool> isTaken = false;
        const auto start = std::chrono::steady_clock::now();
        const auto waitFor = [&](const std::atomic<bool> &condition) {
            while (!condition && std::chrono::steady_clock::now() - start < kSoon) {
                std::this_thread::yield();
            }
        };
        script.atEnd = [&] {
            waitFor(isTaken);
            stop.set();
        };
        DeviceChannel device;
        ASSERT_TRUE(device.open());
        isTakerAsleep = false;
        const ReplacedCall noted("SleepConditionVariableSRW", noteSleep);
        std::thread taker([&] {
            EventBuffer buffer;
            isTaken = queue.get(buffer, 30'000);
        });
        waitFor(isTakerAsleep);
        EventBuffer waiting{std::make_unique<unsigned char[]>(1), 1};
        EXPECT_TRUE(queue.put(waiting));
        DriverReader(device, queue, stop).run();
        taker.join();
        EXPECT_TRUE(isTaken);
        EXPECT_LT(std::chrono::steady_clock::now() - start, kSoon) << row.what;
    }
}

} // namespace
} // namespace velmox
