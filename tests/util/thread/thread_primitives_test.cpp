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
    {"CreateEventA", 0, "CreateEvent: %m", [](Mutex &mutex) { Condition().waitFor(mutex, 0); }},
    {"CloseHandle", 0, "CloseHandle: %m", [](Mutex &) { Event(); }, false},
    {"CloseHandle", 0, "CloseHandle: %m",
     [](Mutex &) { thread_primitives::CheckedHandle(CreateEventA(nullptr, 0, 0, nullptr)); }},
    {"SetEvent", 0, "SetEvent: %m", [](Mutex &) { Event().set(); }},
    {"ReleaseMutex", 0, "ReleaseMutex: %m", [](Mutex &mutex) { MutexGuard{mutex}; }},
    {"WaitForSingleObject", -1, "WaitForSingleObject: %m", [](Mutex &mutex) { mutex.tryLock(); }},
    {"WaitForSingleObject", WAIT_TIMEOUT, "unexpected timeout from WaitForSingleObject",
     [](Mutex &mutex) { mutex.lock(); }},
    {"WaitForSingleObject", WAIT_ABANDONED, "unexpected return value 0x80 from WaitForSingleObject",
     [](Mutex &) { Event().poll(); }},
    {"SignalObjectAndWait", -1, "SignalObjectAndWait: %m", [](Mutex &mutex) { Event().wait(mutex); }},
    {"SignalObjectAndWait", WAIT_TIMEOUT, "unexpected timeout from SignalObjectAndWait",
     [](Mutex &mutex) { Condition().wait(mutex); }},
    {"_beginthreadex", 0, "_beginthreadex: %m", [](Mutex &) { FunctionThread([] {}); }},
    {"TlsAlloc", -1, "TlsAlloc: %m", [](Mutex &) { FunctionThread([] {}); }},
    {"TlsFree", 0, "TlsFree: %m", [](Mutex &) { FunctionThread([] {}); }},
};

TEST(ThreadPrimitives, RaiseAndLogEachFailedCall)
{
    ensureMainThread();
    for (const Failure &failure : kFailures) {
        const CapturedLog log;
        const bool isWait = std::string_view(failure.message).starts_with("unexpected");
        const Str message =
            Str::concat(isWait ? "Main Thread: " : "Main Thread: about to throw a ThreadException: ",
                        Str::fromErrorFormat(ERROR_NOT_OWNER, failure.message))
                .append(isWait ? "" : "; ");
        Mutex mutex;
        const FailingCall refused(failure.function, failure.result, ERROR_NOT_OWNER);
        const Str raised = raisedBy<ThreadException>([&] { failure.call(mutex); });
        EXPECT_EQ(raised, failure.raises ? log.text().substr(13).trimmed(CharSet::lineEnds()) : "nothing");
        EXPECT_TRUE(log.text().startsWith(Str::concat("WARN Thread: ", message))) << log.text().c_str();
        EXPECT_TRUE(isWait || log.text().endsWith(" threads active\n")) << log.text().c_str();
    }
    EXPECT_TRUE(raisedBy<ThreadException>([] { Mutex().unlock(); }).endsWith("; 1 threads active"));
}

// A process of its own: there is no way back.
TEST(ThreadPrimitivesChild, DISABLED_PassInSilence)
{
    ensureMainThread();
    const CapturedLog log;
    Thread::ignoreErrorsFromNowOn();
    for (const Failure &failure : kFailures) {
        Mutex mutex;
        whileFailing({failure.function, failure.result, ERROR_NOT_OWNER},
                     [&] { EXPECT_NO_THROW(failure.call(mutex)) << failure.message; });
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

TEST(Condition, ServesFirstWhoCameLastAndAllByABroadcast)
{
    Mutex mutex;
    Event arrived;
    Event left;
    Condition condition;
    int waiting = 0;
    std::vector<int> woken;
    std::vector<std::unique_ptr<FunctionThread>> waiters;
    const MutexGuard guard(mutex);
    const auto await = [&](Event &event, const auto &isSo) {
        while (!isSo()) {
            ASSERT_TRUE(event.waitFor(mutex, kLongEnough));
        }
    };
    for (int number = 0; number < 5; ++number) {
        waiters.push_back(std::make_unique<FunctionThread>([&, number] {
            const MutexGuard held(mutex);
            ++waiting;
            arrived.set();
            if (condition.waitFor(mutex, kLongEnough)) {
                woken.push_back(number);
            }
            left.set();
        }));
        waiters.back()->start();
        await(arrived, [&] { return waiting > number; });
    }
    for (std::size_t count = 1; count <= 3; ++count) {
        condition.signal();
        await(left, [&] { return woken.size() >= count; });
    }
    EXPECT_THAT(woken, ElementsAre(4, 3, 2));
    condition.broadcast();
    await(left, [&] { return woken.size() == 5; });
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
