#pragma once

#include "util/text/str.h"
#include "util/thread/condition.h"
#include "util/thread/counted_tls_slot.h"

#include <cstddef>

namespace velmox {

// The room of threads: workers with a name and a moment to start at, what they lock and wait on (locks.h,
// condition.h), and the rule for failures of all of these (thread_primitives.h). The log and the crash report
// ask this room who is speaking.

class CrashSink;
class ScopedPerThreadCrashLogNotation;

/// Something that an event loop runs on the loop's own thread.
class InThreadActor
{
public:
    virtual ~InThreadActor() = default;

    virtual void run() = 0;

protected:
    /// For an actor whose maker waits until the loop has run it.
    Event ran_;
};

/// The notes for a crash report that hang on one thread, the latest in front: links of objects that it does
/// not own. Used by its own thread alone, and read when that thread dies.
struct CrashNotes
{
    ScopedPerThreadCrashLogNotation *head = nullptr;
    ScopedPerThreadCrashLogNotation *tail = nullptr;
};

/// Base of every worker, and the object that stands for the main thread.
///
/// A derived class gives the body as `main`. The system's thread is made by the constructor but holds still
/// until `start`, so that the derived object is whole before its body runs. Construct, start, join, destroy,
/// in this order; a thread that is destroyed before it was started never runs its body. The object of the
/// main thread comes before all others.
///
/// Failures of the system raise `ThreadException`, also from the destructor. An exception that leaves `main`
/// ends the process.
class Thread
{
public:
    static constexpr std::size_t kDefaultStackSize = 2u << 20;
    /// As large as that of the main thread, for a thread that matches patterns: the interpreter of regular
    /// expressions counts on it (regex_program.cpp). The system takes 0 for what the program was linked with.
    static constexpr std::size_t kMainStackSize = 0;

    /// The name is formatted; log lines show it.
    explicit Thread(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    Thread(std::size_t stackSize, const char *fmt, ...) VELMOX_PRINTF(3, 4);
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;
    virtual ~Thread() noexcept(false);

    /// Writes the object's state for a crash report. Takes no lock.
    virtual void dump(CrashSink &sink) const;

    /// Lets the body run, now that the derived object is whole.
    void start();
    /// Waits without limit; the thread must have been started.
    void join();
    /// Waits for the end of a started thread; keeps one that was not started from ever running its body.
    void joinOrCancel();
    bool isCurrent() const;

    const Str &name() const { return name_; }
    /// The operating system's thread number.
    unsigned token() const { return threadId_; }
    /// What libxml2 had to say on this thread. Only the thread itself may look while it runs.
    const Str &xmlErrors() const { return xmlErrors_; }
    /// Lets the event loop of another thread reap this one, which must have been made by `new`.
    InThreadActor &reaper() { return joinHelper_; }
    /// Only for the thread itself.
    CrashNotes &crashNotes() { return crashNotes_; }
    const CrashNotes &crashNotes() const { return crashNotes_; }

    /// The calling thread's object, null for the main thread and for threads that no object stands for.
    static Thread *current();
    /// The same, with the main thread's object for the main thread.
    static Thread *currentOrMain();
    /// The calling thread's name for log lines: never fails, takes no lock and keeps the last error.
    static Str currentName() noexcept;
    /// The same without a copy, for the last moments of the process; good as long as the thread's object.
    static const char *currentNameText() noexcept;
    /// True on every thread before the object of the main thread exists.
    static bool isMainThreadNow();
    /// Whether a thread besides the main one was ever made.
    static bool anyCreated();
    /// Objects of threads besides the main one, and the main one.
    static unsigned activeCount();

    /// For the last moments of the process, when other threads may have died in unknown states: failures of
    /// threads, locks and waits pass in silence, and destructors do not wait.
    static void ignoreErrorsFromNowOn();

    /// What the system calls to run a thread; `thread` is the object. For tooling that wraps each thread in a
    /// frame of its own: a wrapper set here is called in its place and must call it.
    using Entry = unsigned(__stdcall *)(void *thread);
    static unsigned __stdcall threadEntry(void *thread);
    static void setEntryWrapper(Entry wrapper);

    /// A hook for the crash log, which stands above: called when the main thread's object is made.
    static void setMainThreadHook(void (*hook)());

protected:
    /// The body, on the new thread.
    virtual void main() = 0;

    /// Signalled once the body has ended; null for the main thread. Stays this object's own.
    HANDLE handle() const { return handle_.get(); }

    /// The main thread's form. The calling thread is the main thread from then on.
    Thread();

private:
    /// Joins its thread from a loop on another thread, and destroys it.
    class JoinHelper : public InThreadActor
    {
    public:
        explicit JoinHelper(Thread &thread) : thread_(thread) {}
        void run() override;

    private:
        Thread &thread_;
    };

    enum class JoinState : int
    {
        NotJoined = 0,
        Joined = 1,
        Cancelled = 2
    };

    void create(std::size_t stackSize, const char *fmt, std::va_list args);
    void run();
    bool waitForStart();
    void cancelUnderLock();
    void stopBeforeDestruction();

    // Destroyed from the last to the first: when the handle goes, whose closing may raise, all the rest has
    // gone.
    thread_primitives::CheckedHandle handle_;  // null for the main thread
    JoinState didJoin_ = JoinState::NotJoined; // under allThreadsLock
    unsigned threadId_ = 0;
    Str name_;
    bool readyToRun_ = false; // under allThreadsLock
    CountedTlsSlot::User slotUser_;
    Condition startCondition_;
    Str xmlErrors_;
    JoinHelper joinHelper_{*this};
    bool isMainThread_ = false;
    CrashNotes crashNotes_;
};

/// The main thread's object, for the entry function's stack: from early in start-up to the end.
class EmptyMainThread : public Thread
{
public:
    EmptyMainThread() = default;

private:
    void main() override {}
};

} // namespace velmox
