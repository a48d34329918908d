#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/shared_state.h"
#include "tests/pipeline/input/driver/scripted_device.h"

namespace velmox {
namespace {

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
        int wakes; // of the taker: for eight buffers, and when none may follow soon
        bool endsByItself;
    } rows[] = {
        {"reads", {{0, 60}, {0, 61}}, 524287999, 0, -1, grown(0, 3), 2, 0, false},
        {"grows", {tooSmall, tooSmall, {0, 60}, {0, 60}}, 0, 0, -1, grown(2, 5), 2, 2, false},
        {"has a ceiling", std::vector<Answer>(20, tooSmall), 0, 0, -1, grown(14, 15), 0, 16, true},
        {"lost the driver", {{ERROR_DEVICE_NOT_CONNECTED, 60}, {0, 60}}, 0, 0, -1, grown(0, 3), 1, 1, false},
        {"at the limit of memory", {{0, 60}, {0, 61}}, 524288000, 0, -1, grown(0, 3), 0, 2, false},
        {"knows no memory", {{0, 60}}, 0, ERROR_ACCESS_DENIED, -1, grown(0, 1), 0, 1, true},
        {"gets no buffer", {{0, 60}}, 0, 0, 0, {}, 0, 1, true},
        {"has a full queue", full, 0, 0, 32, grown(0, 32), 31, 25, true},
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
            const FailingCall woken("WakeConditionVariable", 0, 0, 0, 0);
            const FailingCall exhausted("malloc", 0, ERROR_NOT_ENOUGH_MEMORY, std::max(row.allocations, 0),
                                        row.allocations < 0 ? 0 : 1);
            DriverReader(device, queue, stop).run();
            EXPECT_EQ(woken.calls(), row.wakes);
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

// Each buffer that is queued brings the working set nearer to its limit.
TEST(DriverReader, HoldsTheLimitOfMemoryThoughItRarelyAsks)
{
    ScriptedDevice script;
    script.reads.assign(60, {0, 60});
    script.growth = 8192;
    script.workingSet = 524288000 - 40 * script.growth;
    StopFlag stop;
    script.atEnd = [&stop] { stop.set(); };
    BufferQueue queue;
    DeviceChannel device;
    ASSERT_TRUE(device.open());
    DriverReader(device, queue, stop).run();
    int queued = 0;
    for (EventBuffer buffer; queue.get(buffer, 0); ++queued) {
    }
    EXPECT_EQ(queued, 39);
    EXPECT_LT(script.memoryQueries, 45) << "21 of them at the limit";
}

} // namespace
} // namespace velmox
