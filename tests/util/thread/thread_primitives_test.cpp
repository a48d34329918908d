#include "tests/support/function_thread.h"
#include "util/thread/condition.h"
#include "util/thread/locks.h"
#include "util/thread/thread_primitives.h"

namespace velmox {
namespace {

constexpr unsigned kLongEnough = 20'000;

void inThread(std::function<void()> body)
{
    FunctionThread thread(std::move(body));
    thread.start();
    thread.join();
}

/// A call that fails, what it then tells, and what makes it.
const std::tuple<const char *, const char *, std::function<void(Mutex &)>> kFailures[] = {
    {"CreateMutexA", "CreateMutex: %m", [](Mutex &) { Mutex(); }},
    {"ReleaseMutex", "ReleaseMutex: %m", [](Mutex &mutex) { MutexGuard{mutex}; }},
    {"_beginthreadex", "_beginthreadex: %m", [](Mutex &) { FunctionThread([] {}); }},
};

TEST(ThreadPrimitives, RaiseAndLogAFailedCall)
{
    ensureMainThread();
    for (const auto &[function, told, call] : kFailures) {
        const CapturedLog log;
        Mutex mutex;
        const Str message = Str::concat("Main Thread: about to throw a ThreadException: ",
                                        Str::fromErrorFormat(ERROR_NOT_OWNER, told));
        const FailingCall refused(function, 0, ERROR_NOT_OWNER);
        const Str raised = raisedBy<ThreadException>([&] { call(mutex); });
        EXPECT_TRUE(raised.startsWith(message) && raised.endsWith(" threads active")) << raised.c_str();
        EXPECT_EQ(log.text(), Str("WARN Thread: ") << raised << "\n");
    }
    const CapturedLog quiet;
    const FailingCall timedOut("WaitForSingleObject", WAIT_TIMEOUT, 0);
    EXPECT_EQ(raisedBy<ThreadException>([] { Mutex().lock(); }),
              "Main Thread: unexpected timeout from WaitForSingleObject");
    const FailingCall abandoned("SignalObjectAndWait", WAIT_ABANDONED, 0);
    Mutex mutex;
    mutex.lock();
    EXPECT_EQ(raisedBy<ThreadException>([&] { Event().wait(mutex); }),
              "Main Thread: unexpected return value 0x80 from SignalObjectAndWait");
    mutex.unlock();
}

// A process of its own: there is no way back.
TEST(ThreadPrimitivesChild, DISABLED_PassInSilence)
{
    ensureMainThread();
    const CapturedLog log;
    Thread::ignoreErrorsFromNowOn();
    for (const auto &[function, told, call] : kFailures) {
        Mutex mutex;
        whileFailing({function, 0, ERROR_NOT_OWNER}, [&] { EXPECT_NO_THROW(call(mutex)) << told; });
    }
    EXPECT_EQ(log.text(), "");
    auto *neverStarted = new FunctionThread([] {});
    neverStarted->Thread::~Thread(); // waits for nobody
}

TEST(ThreadPrimitives, PassInSilenceAtTheEndOfTheProcess)
{
    EXPECT_TRUE(ChildTest("ThreadPrimitivesChild.DISABLED_PassInSilence", Pathname()).succeeds());
}

TEST(Mutex, IsRecursiveAndRefusesOthersWithoutWaiting)
{
    const CapturedLog log;
    Mutex mutex;
    const MutexGuard once(mutex);
    const MutexGuard twice(mutex);
    inThread([&] { EXPECT_FALSE(mutex.tryLock()); });
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
    EXPECT_EQ(log.text(), "");
}

TEST(Condition, ServesFirstWhoCameLastAndAllByABroadcast)
{
    Mutex mutex;
    Event changed;
    Condition condition;
    int waiting = 0;
    std::vector<int> woken;
    std::vector<std::unique_ptr<FunctionThread>> waiters;
    const MutexGuard guard(mutex);
    changed.set();
    EXPECT_TRUE(changed.poll() && !changed.poll()) << "one is let through";
    condition.signal(); // nobody waits: no effect on a later wait
    EXPECT_FALSE(condition.waitFor(mutex, 0));
    const auto await = [&](const auto &isSo) {
        while (!isSo()) {
            ASSERT_TRUE(changed.waitFor(mutex, kLongEnough));
        }
    };
    for (int number = 0; number < 5; ++number) {
        waiters.push_back(std::make_unique<FunctionThread>([&, number] {
            const MutexGuard held(mutex);
            ++waiting;
            changed.set();
            if (condition.waitFor(mutex, kLongEnough)) {
                woken.push_back(number);
            }
            changed.set();
        }));
        waiters.back()->start();
        await([&] { return waiting > number; });
    }
    for (const std::size_t count : {1u, 2u, 3u}) {
        condition.signal();
        await([&] { return woken.size() >= count; });
    }
    EXPECT_THAT(woken, ElementsAre(4, 3, 2));
    condition.broadcast();
    await([&] { return woken.size() == 5; });
}

TEST(UsageCount, DrainsWhenNobodyIsInsideAndKeepsOthersOut)
{
    UsageCount usage;
    usage.enter();
    std::atomic<bool> inside = true;
    std::atomic<bool> arriving = false;
    FunctionThread leaver([&] {
        inside = false;
        usage.leave();
    });
    FunctionThread latecomer([&] {
        arriving = true;
        usage.enter();
        inside = true;
    });
    leaver.start();
    const UsageCount::Drained empty = usage.drain();
    EXPECT_FALSE(inside);
    latecomer.start();
    while (!arriving) {
        SwitchToThread();
    }
    SwitchToThread();
    EXPECT_FALSE(inside);
}

} // namespace
} // namespace velmox
