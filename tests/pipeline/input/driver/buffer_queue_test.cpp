#include "pipeline/input/driver/buffer_queue.h"

namespace velmox {
namespace {

constexpr DWORD kLong = 20'000;

void put(BufferQueue &queue, unsigned char mark)
{
    EventBuffer buffer{std::make_unique<unsigned char[]>(1), 1};
    buffer.data[0] = mark;
    ASSERT_TRUE(queue.put(buffer));
    EXPECT_EQ(buffer.data, nullptr);
}

// The marks of the buffers that come up to the first time-out, or of `count`.
std::vector<int> take(BufferQueue &queue, std::size_t count, DWORD milliseconds)
{
    std::vector<int> marks;
    for (EventBuffer buffer; marks.size() < count && queue.get(buffer, milliseconds);) {
        marks.push_back(buffer.data[0]);
    }
    return marks;
}

TEST(BufferQueue, HandsBuffersOverInTheirOrderEvenToATakerThatIsNotWoken)
{
    BufferQueue queue;
    EXPECT_EQ(take(queue, 1, 1), std::vector<int>());
    std::thread giver([&] { put(queue, 1); });
    EXPECT_EQ(take(queue, 1, 300), std::vector{1});
    giver.join();
    for (unsigned char mark = 2; mark <= 4; ++mark) {
        put(queue, mark);
    }
    EXPECT_EQ(take(queue, 9, 1), (std::vector{2, 3, 4}));
}

TEST(BufferQueue, WakesTheTakerForAFewBuffersOrWhenTold)
{
    for (const bool isTold : {false, true}) {
        BufferQueue queue;
        const std::size_t count = isTold ? 1 : 8;
        std::atomic<bool> isDone = false;
        const auto start = std::chrono::steady_clock::now();
        std::thread taker([&] {
            EXPECT_EQ(take(queue, count, kLong), std::vector<int>(count, 7));
            isDone = true;
        });
        for (std::size_t i = 0; i < count; ++i) {
            put(queue, 7);
        }
        // It may not have begun to wait when it is told first.
        while (isTold && !isDone) {
            queue.wakeTaker();
            std::this_thread::yield();
        }
        taker.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kLong));
    }
}

TEST(BufferQueue, WaitsForTheTakerButNotForEver)
{
    BufferQueue queue;
    put(queue, 7);
    const auto start = std::chrono::steady_clock::now();
    queue.waitUntilTaken(1);
    std::thread taker([&] { EXPECT_EQ(take(queue, 1, kLong), std::vector{7}); });
    queue.waitUntilTaken(kLong);
    EXPECT_EQ(take(queue, 1, 0), std::vector<int>());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kLong));
    taker.join();
}

} // namespace
} // namespace velmox
