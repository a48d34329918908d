#include "tests/support/captured_log.h"
#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/function_thread.h"
#include "util/thread/condition.h"
#include "util/thread/event.h"
#include "util/thread/thread_exception.h"
#include "util/thread/usage_count.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace velmox {
namespace {

using testing::FailingCall;
using testing::FunctionThread;

constexpr unsigned kLongEnough = 20'000;

void inThread(std::function<void()> body)
{
    FunctionThread thread(std::move(body));
    thread.start();
    thread.join();
}

Str messageOf(auto &&call)
{
    try {
        call();
        return "no exception";
    } catch (const ThreadException &exception) {
        return exception.message();
    }
}

struct Failure
{
    const char *function;
    int result;
    const char *message; ///< "NAME: %m" for a call that failed, else how a wait ended
    std::function<void(Mutex &)> call;
    bool raises = true; ///< or leaves its line in the log only
};

const Failure kFailures[] = {
    {"CreateMutexA", 0, "CreateMutex: %m", [](Mutex &) { Mutex(); }},
    {"CreateEventA", 0, "CreateEvent: %m", [](Mutex &) { Event(); }},
    {"CreateEventA", 0, "CreateEvent: %m", [](Mutex &mutex) { Condition().waitFor(mutex, 0); }},
    {"CloseHandle", 0, "CloseHandle: %m", [](Mutex &) { Event(); }, false},
    {"CloseHandle", 0, "CloseHandle: %m", [](Mutex &) { Mutex(); }, false},
    {"CloseHandle", 0, "CloseHandle: %m",
     [](Mutex &) { thread_primitives::CheckedHandle(CreateEventA(nullptr, 0, 0, nullptr)); }},
    {"SetEvent", 0, "SetEvent: %m", [](Mutex &) { Event().set(); }},
    {"ReleaseMutex", 0, "ReleaseMutex: %m", [](Mutex &mutex) { MutexGuard{mutex}; }},
    {"WaitForSingleObject", -1, "WaitForSingleObject: %m", [](Mutex &mutex) { mutex.lock(); }},
    {"WaitForSingleObject", -1, "WaitForSingleObject: %m", [](Mutex &mutex) { mutex.tryLock(); }},
    {"WaitForSingleObject", WAIT_TIMEOUT, "unexpected timeout from WaitForSingleObject",
     [](Mutex &mutex) { mutex.lock(); }},
    {"WaitForSingleObject", WAIT_ABANDONED, "unexpected return value 0x80 from WaitForSingleObject",
     [](Mutex &) { Event().poll(); }},
    {"SignalObjectAndWait", -1, "SignalObjectAndWait: %m", [](Mutex &mutex) { Event().wait(mutex); }},
    {"SignalObjectAndWait", WAIT_TIMEOUT, "unexpected timeout from SignalObjectAndWait",
     [](Mutex &mutex) { Condition().wait(mutex); }},
    {"SignalObjectAndWait", 7, "unexpected return value 0x7 from SignalObjectAndWait",
     [](Mutex &mutex) { Event().waitFor(mutex, kLongEnough); }},
    {"_beginthreadex", 0, "_beginthreadex: %m", [](Mutex &) { FunctionThread([] {}); }},
    {"TlsAlloc", -1, "TlsAlloc: %m", [](Mutex &) { FunctionThread([] {}); }},
    {"TlsFree", 0, "TlsFree: %m", [](Mutex &) { FunctionThread([] {}); }},
    {"TlsGetValue", 0, "TlsGetValue: %m",
     [](Mutex &) {
         const FunctionThread slotUser([] {});
         Thread::current();
     }},
};

TEST(ThreadPrimitives, RaiseAndLogEachFailedCall)
{
    testing::ensureMainThread();
    for (const Failure &failure : kFailures) {
        const testing::CapturedLog log;
        const bool isWait = std::string_view(failure.message).starts_with("unexpected");
        Str message = Str::fromErrorFormat(
            ERROR_NOT_OWNER, isWait ? "Main Thread: " : "Main Thread: about to throw a ThreadException: ");
        message << Str::fromErrorFormat(ERROR_NOT_OWNER, failure.message);
        Mutex mutex;
        const FailingCall refused(failure.function, failure.result, ERROR_NOT_OWNER);
        const Str raised = messageOf([&] { failure.call(mutex); });
        EXPECT_EQ(raised,
                  failure.raises ? log.text().substr(13).trimmed(CharSet::lineEnds()) : "no exception");
        EXPECT_TRUE(log.text().startsWith(Str::concat("WARN Thread: ", message))) << log.text().c_str();
        EXPECT_TRUE(isWait || log.text().endsWith(" threads active\n")) << log.text().c_str();
    }
    EXPECT_EQ(messageOf([] { Mutex().unlock(); }),
              Str::fromErrorFormat(ERROR_NOT_OWNER, "Main Thread: about to throw a ThreadException: "
                                                    "ReleaseMutex: %m; 1 threads active"));
}

// A process of its own: there is no way back.
TEST(ThreadPrimitivesChild, DISABLED_PassInSilence)
{
    testing::ensureMainThread();
    const testing::CapturedLog log;
    Thread::ignoreErrorsFromNowOn();
    for (const Failure &failure : kFailures) {
        Mutex mutex;
        const FailingCall refused(failure.function, failure.result, ERROR_NOT_OWNER);
        EXPECT_NO_THROW(failure.call(mutex)) << failure.message;
        EXPECT_EQ(refused.failed(), 1) << failure.message;
    }
    EXPECT_EQ(log.text(), "");
    auto *neverStarted = new FunctionThread([] {});
    neverStarted->Thread::~Thread(); // waits for nobody
}

TEST(ThreadPrimitives, PassInSilenceAtTheEndOfTheProcess)
{
    EXPECT_TRUE(testing::ChildTest("ThreadPrimitivesChild.DISABLED_PassInSilence", Pathname()).succeeds());
}

TEST(Mutex, IsRecursiveAndRefusesOthersWithoutWaiting)
{
    const testing::CapturedLog log;
    Mutex mutex;
    const MutexGuard once(mutex);
    const MutexGuard twice(mutex);
    inThread([&] { EXPECT_FALSE(mutex.tryLock()); });
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
    EXPECT_EQ(log.text(), "");
}

TEST(Event, LetsOneThroughAndKeepsTheMutex)
{
    Event event;
    Mutex mutex;
    mutex.lock();
    EXPECT_FALSE(event.poll());
    EXPECT_FALSE(event.waitFor(mutex, 0));
    event.set();
    event.wait(mutex);
    EXPECT_FALSE(event.poll());
    FunctionThread setter([&] {
        const MutexGuard guard(mutex); // free while the other waits
        event.set();
    });
    setter.start();
    EXPECT_TRUE(event.waitFor(mutex, kLongEnough));
    mutex.unlock();
    EXPECT_THROW(mutex.unlock(), ThreadException) << "held once, not more";
}

TEST(Condition, TimesOutWithTheMutexHeld)
{
    Condition condition;
    Mutex mutex;
    mutex.lock();
    EXPECT_FALSE(condition.waitFor(mutex, 0));
    condition.signal(); // nobody waits: no effect on a later wait
    condition.broadcast();
    // The second wait takes the first one's event.
    const FailingCall noFurtherEvent("CreateEventA", 0, ERROR_NOT_ENOUGH_MEMORY);
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
        for (const std::size_t before = waiting_; waiting_ == before;) {
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

TEST_F(ConditionOrder, ServesFirstWhoCameLastAndAllByABroadcast)
{
    for (int i = 0; i < 5; ++i) {
        addWaiter();
    }
    for (std::size_t i = 1; i <= 3; ++i) {
        condition_.signal();
        awaitWoken(i);
    }
    EXPECT_EQ(woken_, (std::vector<std::size_t>{4, 3, 2}));
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
    even.start();
    inThread([&] { player(1); });
    even.join();
    EXPECT_FALSE(lost);
    EXPECT_GE(turn, kRounds);
}

TEST(UsageCount, DrainsForAllWhenTheLastOneLeavesAndKeepsOthersOut)
{
    UsageCount usage;
    usage.enter();
    usage.enter();
    std::atomic<int> inside = 2;
    std::atomic<bool> entered = false;
    std::atomic<bool> drained = false;
    FunctionThread leaver([&] {
        for (int i = 0; i < 2; ++i) {
            --inside;
            usage.leave();
        }
    });
    FunctionThread latecomer([&] {
        usage.enter();
        entered = true;
        usage.leave();
    });
    FunctionThread other([&] {
        const UsageCount::Drained empty = usage.drain();
        drained = true;
    });
    other.start();
    Sleep(20); // one that does not wait would have its chance, here and below
    EXPECT_FALSE(drained);
    leaver.start();
    {
        const UsageCount::Drained empty = usage.drain();
        EXPECT_EQ(inside, 0);
        latecomer.start();
        Sleep(20);
        EXPECT_FALSE(entered);
    }
    latecomer.join();
    other.join();
    EXPECT_TRUE(entered && drained);
}

} // namespace
} // namespace velmox
