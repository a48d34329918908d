#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/function_thread.h"
#include "util/thread/thread.h"
#include "util/thread/thread_exception.h"

#include <atomic>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <thread>

namespace velmox {
namespace {

using testing::ensureMainThread;
using testing::FunctionThread;

/// A thread that counts how often its body runs and it is destroyed.
struct CountedThread : Thread
{
    CountedThread(std::atomic<int> &bodies, std::atomic<int> &ends)
        : Thread("%s", "counted"), bodies_(bodies), ends_(ends)
    {
    }
    ~CountedThread() noexcept(false) override { ++ends_; }
    void main() override
    {
        ++bodies_;
        reaper().run();
    }
    std::atomic<int> &bodies_;
    std::atomic<int> &ends_;
};

std::atomic<int> bodies;
std::atomic<int> ends;

TEST(Thread, NamesItselfToWhomeverItIsCurrent)
{
    ensureMainThread();
    EXPECT_TRUE(Thread::isMainThreadNow());
    EXPECT_EQ(Thread::current(), nullptr);
    EXPECT_EQ(Thread::currentName(), "Main Thread");
    Thread *expected = nullptr;
    FunctionThread worker(
        [&] {
            EXPECT_EQ(Thread::currentName(), "worker with a long name");
            EXPECT_EQ(Thread::current(), expected);
            EXPECT_TRUE(expected->isCurrent() && !Thread::isMainThreadNow());
            EXPECT_EQ(GetCurrentThreadId(), expected->token());
        },
        "worker with a long name");
    expected = &worker;
    worker.start();
    worker.join();
    EXPECT_FALSE(worker.isCurrent());
    std::thread([] { EXPECT_EQ(Thread::currentName(), "Unknown Thread"); }).join();
    SetLastError(1234);
    EXPECT_EQ(Thread::currentName(), "Main Thread");
    EXPECT_EQ(GetLastError(), 1234u);
    const testing::FailingCall refused("TlsGetValue", 0, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Thread::currentName(), "???");
}

TEST(Thread, RunsItsBodyOnlyWhenItIsStarted)
{
    ensureMainThread();
    bodies = ends = 0;
    {
        CountedThread started(bodies, ends);
        CountedThread cancelled(bodies, ends);
        const CountedThread destroyed(bodies, ends);
        Sleep(20); // a body that runs too early would have its chance
        EXPECT_EQ(bodies, 0);
        started.start();
        started.joinOrCancel();
        cancelled.joinOrCancel();
        EXPECT_EQ(bodies, 1);
    }
    EXPECT_EQ(bodies, 1);
    EXPECT_EQ(ends, 3);
}

TEST(Thread, IsReapedByAnotherThreadAndNotByItself)
{
    ensureMainThread();
    bodies = ends = 0;
    auto *worker = new CountedThread(bodies, ends);
    const KernelHandle watched(OpenThread(SYNCHRONIZE, FALSE, worker->token()));
    worker->start();
    ASSERT_EQ(WaitForSingleObject(watched.get(), 20'000), WAIT_OBJECT_0);
    EXPECT_EQ(bodies, 1);
    EXPECT_EQ(ends, 0);
    worker->reaper().run();
    EXPECT_EQ(ends, 1);
}

TEST(Thread, CountsItsObjectsAndGivesTheSlotBack)
{
    const unsigned before = Thread::activeCount();
    for (int round = 0; round < 1200; ++round) { // more rounds than there are slots
        FunctionThread worker([] {});
        ASSERT_EQ(Thread::activeCount(), before + 1);
        if (round % 100 == 0) {
            worker.start();
        }
    }
    EXPECT_EQ(Thread::activeCount(), before);
    EXPECT_TRUE(Thread::anyCreated());
}

template <class Made>
Str messageOfMaking(auto &&...arguments)
{
    try {
        const Made made(arguments...);
        return "no exception";
    } catch (const ThreadException &exception) {
        return exception.message();
    }
}

// A process of its own: there is one beginning.
TEST(ThreadChild, DISABLED_MadeBeforeTheMainThread)
{
    EXPECT_EQ(Thread::currentName(), "Main Thread");
    std::thread([] { EXPECT_TRUE(Thread::isMainThreadNow()); }).join();
    EXPECT_EQ(messageOfMaking<CountedThread>(bodies, ends), "Thread created before main thread!");
    EXPECT_EQ(Thread::activeCount(), 1u);
    EXPECT_FALSE(Thread::anyCreated());
}

TEST(Thread, NeedsOneMainThread)
{
    testing::ChildTest first("ThreadChild.DISABLED_MadeBeforeTheMainThread", Pathname());
    EXPECT_TRUE(first.succeeds());
    EXPECT_TRUE(first.output().contains("Thread created before main thread!\n")) << "no line in the log";
    ensureMainThread();
    EXPECT_EQ(messageOfMaking<EmptyMainThread>(), "Main Thread created twice!");
}

TEST(Thread, CollectsTheXmlErrorsOfItsOwnThread)
{
    FunctionThread worker([] { xmlFreeDoc(xmlReadMemory("<a><b></a>", 10, "x", nullptr, 0)); });
    FunctionThread other([] {});
    worker.start();
    other.start();
    worker.join();
    other.join();
    EXPECT_TRUE(worker.xmlErrors().contains("mismatch")) << worker.xmlErrors().c_str();
    EXPECT_TRUE(other.xmlErrors().empty());
}

TEST(Thread, CallsTheEntryThroughAWrapper)
{
    ensureMainThread();
    static std::atomic<int> wrapped;
    bodies = wrapped = 0;
    Thread::setEntryWrapper([](void *thread) -> unsigned {
        ++wrapped;
        return Thread::threadEntry(thread);
    });
    CountedThread worker(bodies, ends);
    Thread::setEntryWrapper(nullptr);
    worker.start();
    worker.join();
    EXPECT_EQ(wrapped, 1);
    EXPECT_EQ(bodies, 1);
}

} // namespace
} // namespace velmox
