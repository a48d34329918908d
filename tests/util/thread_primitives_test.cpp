#include "tests/support/function_thread.h"
#include "util/condition.h"
#include "util/event.h"
#include "util/thread_exception.h"
#include "util/usage_count.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace velmox {
namespace {

using testing::FunctionThread;

constexpr unsigned kLongEnough = 20'000;

template <class Call>
Str messageOf(Call call)
{
    try {
        call();
    } catch (const ThreadException &exception) {
        return exception.message();
    }
    return "no exception";
}

TEST(Mutex, IsRecursiveAndRefusesOthersWithoutWaiting)
{
    Mutex mutex;
    const MutexGuard once(mutex);
    const MutexGuard twice(mutex);
    bool taken = true;
    {
        FunctionThread other([&] { taken = mutex.tryLock(); });
        other.start();
        other.join();
    }
    EXPECT_FALSE(taken);
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(Mutex, TellsWhoFailedAtWhat)
{
    testing::ensureMainThread();
    Mutex mutex;
    const Str error = Str::fromErrorFormat(ERROR_NOT_OWNER, "%m");
    EXPECT_EQ(
        messageOf([&] { mutex.unlock(); }),
        Str::fromFormat("Main Thread: about to throw a ThreadException: ReleaseMutex: %s; %u threads active",
                        error.c_str(), Thread::activeCount()));

    FunctionThread abandons([&] { mutex.lock(); });
    abandons.start();
    abandons.join();
    EXPECT_EQ(messageOf([&] { mutex.lock(); }),
              "Main Thread: unexpected return value 0x80 from WaitForSingleObject");
    mutex.unlock();
}

TEST(Event, LetsOneThroughAndKeepsTheMutex)
{
    Event event;
    Mutex mutex;
    const MutexGuard guard(mutex);
    EXPECT_FALSE(event.poll());
    EXPECT_FALSE(event.waitFor(mutex, 0));
    event.set();
    event.wait(mutex);
    EXPECT_FALSE(event.poll());
    // The mutex is held still: releasing it needs no second taking.
    mutex.unlock();
    mutex.lock();
}

TEST(Event, ReleasesTheMutexWhileItWaits)
{
    Event event;
    Mutex mutex;
    FunctionThread setter([&] {
        const MutexGuard guard(mutex);
        event.set();
    });
    const MutexGuard guard(mutex);
    setter.start();
    EXPECT_TRUE(event.waitFor(mutex, kLongEnough));
}

TEST(Condition, TimesOutWithTheMutexHeld)
{
    Condition condition;
    Mutex mutex;
    mutex.lock();
    EXPECT_FALSE(condition.waitFor(mutex, 0));
    condition.signal(); // nobody waits: no effect on a later wait
    condition.broadcast();
    EXPECT_FALSE(condition.waitFor(mutex, 0));
    mutex.unlock();
    EXPECT_THROW(mutex.unlock(), ThreadException);
}

/// Threads that wait on one condition, each begun when the one before is on the list.
class ConditionOrder : public ::testing::Test
{
protected:
    void addWaiter()
    {
        const std::size_t number = waiters_.size();
        waiters_.push_back(std::make_unique<FunctionThread>([this, number] {
            const MutexGuard guard(mutex_);
            ++waiting_;
            arrived_.set();
            if (condition_.waitFor(mutex_, kLongEnough)) {
                woken_.push_back(number);
            }
            left_.set();
        }));
        const MutexGuard guard(mutex_);
        waiters_.back()->start();
        const std::size_t before = waiting_;
        while (waiting_ == before) {
            ASSERT_TRUE(arrived_.waitFor(mutex_, kLongEnough));
        }
    }

    void awaitWoken(std::size_t count)
    {
        const MutexGuard guard(mutex_);
        while (woken_.size() < count) {
            ASSERT_TRUE(left_.waitFor(mutex_, kLongEnough));
        }
    }

    Mutex mutex_;
    Event arrived_;
    Event left_;
    Condition condition_;
    std::size_t waiting_ = 0;
    std::vector<std::size_t> woken_;
    std::vector<std::unique_ptr<FunctionThread>> waiters_;
};

TEST_F(ConditionOrder, ServesFirstWhoCameLast)
{
    for (int i = 0; i < 3; ++i) {
        addWaiter();
    }
    for (std::size_t i = 1; i <= 3; ++i) {
        condition_.signal();
        awaitWoken(i);
    }
    EXPECT_EQ(woken_, (std::vector<std::size_t>{2, 1, 0}));
}

TEST_F(ConditionOrder, WakesEverybodyByABroadcast)
{
    for (int i = 0; i < 5; ++i) {
        addWaiter();
    }
    condition_.broadcast();
    awaitWoken(5);
}

// Two threads hand a token to and fro. One lost wake-up stops them until the time limit of a wait.
TEST(Condition, LosesNoWakeUp)
{
    constexpr int kRounds = 2000;
    Mutex mutex;
    Condition condition;
    int turn = 0;
    std::atomic<bool> lost = false;
    const auto player = [&](int parity) {
        const MutexGuard guard(mutex);
        while (turn < kRounds && !lost) {
            while (turn % 2 != parity && turn < kRounds && !lost) {
                lost = !condition.waitFor(mutex, kLongEnough);
            }
            ++turn;
            condition.broadcast();
        }
    };
    FunctionThread even([&] { player(0); });
    FunctionThread odd([&] { player(1); });
    even.start();
    odd.start();
    even.join();
    odd.join();
    EXPECT_FALSE(lost);
    EXPECT_GE(turn, kRounds);
}

TEST(UsageCount, DrainsWhenTheLastOneLeavesAndKeepsOthersOut)
{
    UsageCount usage;
    usage.enter();
    usage.enter();
    std::atomic<int> inside = 2;
    std::atomic<bool> enteredAgain = false;
    FunctionThread leaver([&] {
        --inside;
        usage.leave();
        --inside;
        usage.leave();
    });
    FunctionThread latecomer([&] {
        usage.enter();
        enteredAgain = true;
        usage.leave();
    });
    leaver.start();
    {
        const UsageCount::Drained drained = usage.drain();
        EXPECT_EQ(inside, 0);
        latecomer.start();
        Sleep(20); // a latecomer that is let in would have its chance
        EXPECT_FALSE(enteredAgain);
    }
    latecomer.join();
    EXPECT_TRUE(enteredAgain);
}

TEST(UsageCount, DrainsForAllWhoWait)
{
    UsageCount usage;
    usage.enter();
    std::atomic<int> drained = 0;
    const auto drain = [&] {
        const UsageCount::Drained empty = usage.drain();
        ++drained;
    };
    FunctionThread one(drain);
    FunctionThread other(drain);
    one.start();
    other.start();
    Sleep(20); // both wait
    EXPECT_EQ(drained, 0);
    usage.leave();
    one.join();
    other.join();
}

} // namespace
} // namespace velmox
