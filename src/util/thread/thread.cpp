#include "util/thread/thread.h"

#include "util/crash/crash_log.h"
#include "util/crash/crash_sink.h"
#include "util/text/argument_list_end.h"
#include "util/thread/thread_debugger_name.h"
#include "util/thread/thread_exception.h"
#include "util/thread/thread_xml_errors.h"

#include <process.h>

namespace velmox {

namespace {

/// Short enough for a text that takes nothing from the heap.
constexpr char kNamelessThread[] = "???";

/// The slot does not own the threads in it.
void releaseThread(void *) {}

/// Counts the threads besides the main one, and holds each one's object while it runs.
constinit CountedTlsSlot threadSlot(releaseThread);

unsigned mainThreadId = 0;
bool mainThreadExists = false;
Thread *mainThread = nullptr;
std::atomic<bool> threadsCreated = false;
Thread::Entry threadEntryWrapper = nullptr;

/// Guards `readyToRun_` and `didJoin_` of all threads. Taken before any condition's lists, never after; never
/// destroyed, because threads outlive static objects.
Mutex &allThreadsLock()
{
    static Mutex &lock = *new Mutex;
    return lock;
}

} // namespace

Thread::Thread(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    const ArgumentListEnd end{args};
    create(kDefaultStackSize, fmt, args);
}

Thread::Thread(std::size_t stackSize, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    const ArgumentListEnd end{args};
    create(stackSize, fmt, args);
}

Thread::Thread()
    : didJoin_(JoinState::Joined), threadId_(GetCurrentThreadId()), name_("Main Thread"), readyToRun_(true),
      isMainThread_(true)
{
    if (mainThreadExists) {
        throwThreadException(GetLastError(), "Main Thread created twice!");
    }
    tellDebuggerThreadName(threadId_, name_.c_str());
    mainThreadId = threadId_;
    mainThreadExists = true;
    mainThread = this;
    installCrashHandlers();
}

void Thread::create(std::size_t stackSize, const char *fmt, std::va_list args)
{
    slotUser_.enter(threadSlot);
    if (!mainThreadExists) {
        throwThreadException(GetLastError(), "Thread created before main thread!");
    }
    threadsCreated = true;
    name_.vformat(fmt, args);
    const Entry entry = threadEntryWrapper != nullptr ? threadEntryWrapper : &Thread::threadEntry;
    const std::uintptr_t handle = _beginthreadex(nullptr, static_cast<unsigned>(stackSize), entry, this,
                                                 STACK_SIZE_PARAM_IS_A_RESERVATION, &threadId_);
    if (handle == 0) {
        thread_primitives::reportFailure("_beginthreadex");
    }
    handle_.reset(reinterpret_cast<HANDLE>(handle));
}

Thread::~Thread() noexcept(false)
{
    if (mainThread == this) {
        mainThread = nullptr;
    }
    if (handle_.isValid() && thread_primitives::errorsThrow()) {
        stopBeforeDestruction();
    }
}

void Thread::stopBeforeDestruction()
{
    {
        const MutexGuard guard(allThreadsLock());
        if (didJoin_ == JoinState::Joined) {
            return;
        }
        cancelUnderLock();
    }
    thread_primitives::waitForObject(handle_.get());
}

/// Has no effect on a thread that runs its body already.
void Thread::cancelUnderLock()
{
    readyToRun_ = true;
    didJoin_ = JoinState::Cancelled;
    startCondition_.signal();
}

void Thread::start()
{
    const MutexGuard guard(allThreadsLock());
    readyToRun_ = true;
    startCondition_.signal();
}

void Thread::join()
{
    {
        const MutexGuard guard(allThreadsLock());
        didJoin_ = JoinState::Joined;
    }
    thread_primitives::waitForObject(handle_.get());
}

void Thread::joinOrCancel()
{
    {
        const MutexGuard guard(allThreadsLock());
        if (!readyToRun_) {
            cancelUnderLock();
        } else {
            didJoin_ = JoinState::Joined;
        }
    }
    thread_primitives::waitForObject(handle_.get());
    const MutexGuard guard(allThreadsLock());
    didJoin_ = JoinState::Joined;
}

bool Thread::isCurrent() const
{
    return threadId_ == GetCurrentThreadId();
}

unsigned __stdcall Thread::threadEntry(void *thread)
{
    static_cast<Thread *>(thread)->run();
    return 0;
}

void Thread::run()
{
    tellDebuggerThreadName(GetCurrentThreadId(), name_.c_str());
    reserveStackForCrash();
    threadSlot.set(this);
    if (!waitForStart()) {
        return;
    }
    collectXmlErrors(xmlErrors_);
    main();
}

/// False for a thread that was cancelled first.
bool Thread::waitForStart()
{
    const MutexGuard guard(allThreadsLock());
    while (!readyToRun_) {
        startCondition_.wait(allThreadsLock());
    }
    return didJoin_ != JoinState::Cancelled;
}

void Thread::dump(CrashSink &sink) const
{
    sink.format(" Thread: \"%s\", token=%u, didJoin=%d, readyToRun=%d%s\r\n", name_.c_str(), threadId_,
                static_cast<int>(didJoin_), readyToRun_ ? 1 : 0, isMainThread_ ? ", main" : "");
}

Thread *Thread::current()
{
    return static_cast<Thread *>(threadSlot.get());
}

Thread *Thread::currentOrMain()
{
    Thread *thread = current();
    return thread == nullptr && mainThreadId == GetCurrentThreadId() ? mainThread : thread;
}

Str Thread::currentName() noexcept
{
    try {
        return currentNameText();
    } catch (...) {
        return kNamelessThread;
    }
}

const char *Thread::currentNameText() noexcept
{
    try {
        void *thread = nullptr;
        if (!threadSlot.tryGet(thread)) {
            return kNamelessThread;
        }
        if (thread != nullptr) {
            return static_cast<const Thread *>(thread)->name_.c_str();
        }
        return isMainThreadNow() ? "Main Thread" : "Unknown Thread";
    } catch (...) {
        return kNamelessThread;
    }
}

bool Thread::isMainThreadNow()
{
    return !mainThreadExists || mainThreadId == GetCurrentThreadId();
}

bool Thread::anyCreated()
{
    return threadsCreated;
}

unsigned Thread::activeCount()
{
    return threadSlot.userCount() + 1;
}

void Thread::ignoreErrorsFromNowOn()
{
    thread_primitives::ignoreErrorsFromNowOn();
}

void Thread::setEntryWrapper(Entry wrapper)
{
    threadEntryWrapper = wrapper;
}

void Thread::JoinHelper::run()
{
    if (thread_.isCurrent()) {
        return;
    }
    thread_.join();
    delete &thread_; // and this object with it
}

} // namespace velmox
