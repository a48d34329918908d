#include "pipeline/input/buffer_queue.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

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

TEST(BufferQueue, HandsBuffersOverInTheirOrder)
{
    BufferQueue queue;
    EXPECT_EQ(take(queue, 1, 1), std::vector<int>());
    for (unsigned char mark = 1; mark <= 3; ++mark) {
        put(queue, mark);
    }
    EXPECT_EQ(take(queue, 9, 1), (std::vector{1, 2, 3}));
}

TEST(BufferQueue, WakesTheTakerForAFewBuffersOrWhenTold)
{
    for (const bool isTold : {false, true}) {
        BufferQueue queue;
        const std::size_t count = isTold ? 1 : 8;
        std::atomic<bool> isDone = false;
        std::vector<int> taken;
        const auto start = std::chrono::steady_clock::now();
        std::thread taker([&] {
            taken = take(queue, count, kLong);
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
        EXPECT_EQ(taken, std::vector<int>(count, 7));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kLong));
    }
}

TEST(BufferQueue, ATakerThatIsNotWokenFindsWhatCameMeanwhile)
{
    BufferQueue queue;
    std::thread giver([&] { put(queue, 5); });
    EXPECT_EQ(take(queue, 1, 300), std::vector{5});
    giver.join();
}

} // namespace
} // namespace velmox
