#include "util/thread/thread.h"

#include "util/log/log_system.h"
#include "util/text/str.h"
#include "util/thread/crash_sink.h"

#include <libxml/xmlerror.h>
#include <process.h>

namespace velmox {

namespace {

/// Short enough for a text that takes nothing from the heap.
constexpr char kNamelessThread[] = "???";

/// The slot does not own the threads in it.
void releaseThread(void *) {}

/// Counts the threads besides the main one, and holds each one's object while it runs.
constinit CountedTlsSlot threadSlot(releaseThread);

// Set while there is but one thread, and only read afterwards: they need no lock.
unsigned mainThreadId = 0;
bool mainThreadExists = false;
Thread *mainThread = nullptr;
std::atomic<bool> threadsCreated = false;
Thread::Entry threadEntryWrapper = nullptr;
void (*mainThreadHook)() = nullptr;

/// Rooms and units below ask for names through hooks.
[[maybe_unused]] const bool hooksSet = [] {
    LogSystem::instance().setThreadName(Thread::currentName);
    thread_primitives::setThreadFacts(Thread::currentName, Thread::activeCount);
    return true;
}();

/// Guards `readyToRun_` and `didJoin_` of all threads. Taken before any condition's lists, never after; never
/// destroyed, because threads outlive static objects.
Mutex &allThreadsLock()
{
    static Mutex &lock = *new Mutex;
    return lock;
}

/// The exception by which debuggers for Windows learn thread names, and its arguments as they read them.
constexpr DWORD kNameException = 0x406D1388;

struct NameRecord
{
    DWORD type;
    const char *name;
    DWORD threadId;
    DWORD flags;
};
static_assert(sizeof(NameRecord) == 3 * sizeof(ULONG_PTR));

LONG WINAPI continueNameException(EXCEPTION_POINTERS *exception)
{
    return exception->ExceptionRecord->ExceptionCode == kNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                       : EXCEPTION_CONTINUE_SEARCH;
}

/// Tells an attached debugger the name of a thread, and does nothing else. The compiler has no structured
/// handlers, so a vectored one lets the thread go on when no debugger took the exception. It is there for the
/// time of the call only.
void nameThreadForDebugger(unsigned threadId, const char *name)
{
    // 0x1000 says that this layout follows.
    const NameRecord record{0x1000, name, threadId, 0};
    void *handler = AddVectoredExceptionHandler(1, continueNameException);
    if (handler == nullptr) {
        return;
    }
    RaiseException(kNameException, 0, sizeof(record) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR *>(&record));
    RemoveVectoredExceptionHandler(handler);
}

// An exception must not cross the C library: a message that finds no memory is lost.

void collectStructured(void *errors, xmlErrorPtr error)
{
    try {
        if (error->message != nullptr) {
            static_cast<Str *>(errors)->append(error->message);
        }
    } catch (...) {
    }
}

void collectGeneric(void *errors, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    try {
        static_cast<Str *>(errors)->vappendFormat(fmt, args);
    } catch (...) {
    }
    va_end(args);
}

/// Points the error functions of libxml2, which keeps them per thread, at a text that grows with each message
/// and must live as long as the calling thread uses libxml2.
void collectXmlErrors(Str &errors)
{
    xmlSetStructuredErrorFunc(&errors, collectStructured);
    xmlSetGenericErrorFunc(&errors, collectGeneric);
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
    nameThreadForDebugger(threadId_, name_.c_str());
    mainThreadId = threadId_;
    mainThreadExists = true;
    mainThread = this;
    if (mainThreadHook != nullptr) {
        mainThreadHook();
    }
}

/// A thread that is made too early counts while its failure is told, and nobody has been created by it.
void Thread::create(std::size_t stackSize, const char *fmt, std::va_list args)
{
    slotUser_.enter(threadSlot);
    if (!mainThreadExists) {
        throwThreadException(GetLastError(), "Thread created before main thread!");
    }
    threadsCreated = true;
    // Before there is a thread, as its first act is to tell its name.
    name_.vformat(fmt, args);
    const Entry entry = threadEntryWrapper != nullptr ? threadEntryWrapper : &Thread::threadEntry;
    // The size as that of the reservation. Without the flag it would be what is committed at once, and each
    // stack as large as the program's own.
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
    // Without the lock, which the thread must take to see that it was cancelled.
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
        // Asked and cancelled under one lock: nobody can start it in between.
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

/// The slot is filled before the first lock is taken, so that a failure of that has a name to tell.
void Thread::run()
{
    nameThreadForDebugger(GetCurrentThreadId(), name_.c_str());
    thread_primitives::reserveStackForCrash();
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
        // Unknown are threads of the system and of libraries, such as that of the console's handler.
        return isMainThreadNow() ? "Main Thread" : "Unknown Thread";
    } catch (...) {
        return kNamelessThread;
    }
}

// Static constructors and whatever runs ahead of the main thread's object count as the main thread.
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

void Thread::setMainThreadHook(void (*hook)())
{
    mainThreadHook = hook;
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
