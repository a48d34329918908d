#include "pipeline/input/modinputs/script_run.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/process/job_process.h"
#include "util/system/last_error_keeper.h"
#include "util/thread/thread.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <mutex>
#include <vector>

namespace velmox {

namespace {

constexpr DWORD kPieceBytes = 8192;
/// How long a thread has for the rest of its stream once the script has ended.
constexpr DWORD kCancelMs = 1000;

using Sink = std::function<void(std::string_view)>;

struct Pipe
{
    KernelHandle reader;
    KernelHandle writer;
};

enum class ScriptEnd
{
    Reads,
    Writes
};

/// False, with the reason in the last error, when there is none to be had.
bool makePipe(Pipe &pipe, ScriptEnd end)
{
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    if (!CreatePipe(&reader, &writer, nullptr, 0)) {
        return false;
    }
    pipe = {KernelHandle(reader), KernelHandle(writer)};
    // Only the script's end can be inherited: if it also got this side's, its pipe would never come to an
    // end.
    return SetHandleInformation(end == ScriptEnd::Reads ? reader : writer, HANDLE_FLAG_INHERIT,
                                HANDLE_FLAG_INHERIT) != FALSE;
}

/// The list of the handles that a new process inherits; the handles must stand as long as it does. Without a
/// list a script would inherit all that can be inherited at this moment, and so the pipes of one that
/// another thread is about to start.
class InheritedHandles
{
public:
    InheritedHandles(HANDLE *handles, std::size_t count)
    {
        // The first call fails by design and tells the size.
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        storage_.resize(size);
        isInitialized_ = InitializeProcThreadAttributeList(list(), 1, 0, &size) != FALSE;
        isValid_ =
            isInitialized_ && UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                                        count * sizeof(HANDLE), nullptr, nullptr) != FALSE;
    }
    ~InheritedHandles()
    {
        const LastErrorKeeper keeper;
        if (isInitialized_) {
            DeleteProcThreadAttributeList(list());
        }
    }
    InheritedHandles(const InheritedHandles &) = delete;
    InheritedHandles &operator=(const InheritedHandles &) = delete;

    bool isValid() const { return isValid_; }
    LPPROC_THREAD_ATTRIBUTE_LIST list()
    {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage_.data());
    }

private:
    std::vector<std::byte> storage_;
    bool isInitialized_ = false;
    bool isValid_ = false;
};

[[noreturn]] void raiseUnableToRun(const Str &commandLine)
{
    ModularInputsException::raise("Unable to run \"%s\": %m", commandLine.c_str());
}

/// A running script with pipes on its three standard streams. It ends with this object at the latest, and
/// whatever it started ends with it.
///
/// The script inherits its ends of the pipes and no other handle, so that scripts can be started from any
/// number of threads. It has no window.
class ScriptProcess
{
public:
    /// Throws ModularInputsException, with `label` in front of what says that the pipes could not be made.
    ScriptProcess(const Str &label, const Str &commandLine);

    /// Signalled when the script itself has ended.
    HANDLE handle() const { return process_.handle(); }
    /// Ends the script if it still runs, and everything that it started. For any thread.
    void end() { process_.end(); }
    /// After the end.
    int exitStatus() const { return static_cast<int>(process_.exitStatus()); }

    /// This side's ends of the pipes.
    KernelHandle &input() { return input_; }
    HANDLE output() const { return output_.get(); }
    HANDLE errors() const { return errors_.get(); }

private:
    KernelHandle input_;
    KernelHandle output_;
    KernelHandle errors_;
    JobProcess process_;
};

ScriptProcess::ScriptProcess(const Str &label, const Str &commandLine)
{
    Pipe input;
    Pipe output;
    Pipe errors;
    if (!makePipe(input, ScriptEnd::Reads) || !makePipe(output, ScriptEnd::Writes) ||
        !makePipe(errors, ScriptEnd::Writes)) {
        ModularInputsException::raise("%s: pipe setup fail: %m", label.c_str());
    }
    // The script's ends are closed here once it has them: only then does a pipe end when the script does.
    input_ = std::move(input.writer);
    output_ = std::move(output.reader);
    errors_ = std::move(errors.reader);
    HANDLE inherited[] = {input.reader.get(), output.writer.get(), errors.writer.get()};
    InheritedHandles attributes(inherited, std::size(inherited));
    if (!attributes.isValid()) {
        raiseUnableToRun(commandLine);
    }
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = inherited[0];
    startup.StartupInfo.hStdOutput = inherited[1];
    startup.StartupInfo.hStdError = inherited[2];
    startup.lpAttributeList = attributes.list();
    // The list counts only with the second flag; without it Windows takes the structure for its shorter
    // form.
    if (!process_.start(WideStr::fromUtf8(commandLine), CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT,
                        startup.StartupInfo)) {
        raiseUnableToRun(commandLine);
    }
}

/// Serves one stream of a script. The body must not throw. The script ends before the thread is joined: it,
/// or what it leaves running, may hold the pipe open.
class StreamThread : public Thread
{
public:
    StreamThread(const char *name, ScriptProcess &process, std::function<void(StreamThread &)> body)
        : Thread("%s", name), process_(process), body_(std::move(body))
    {
        start();
    }
    ~StreamThread() noexcept(false) override
    {
        process_.end();
        // Where there is no job, what the script has started runs on, and may hold the pipe open: a call on
        // the pipe then waits without end, and has to be cancelled. (At a pipe that nobody holds any more it
        // ends by itself.) A call that begins right after one cancellation is met by the next.
        while (WaitForSingleObject(handle(), kCancelMs) == WAIT_TIMEOUT) {
            const std::lock_guard guard(lock_);
            if (isInCall_) {
                CancelSynchronousIo(handle());
            }
        }
        joinOrCancel();
    }

    /// For the body: makes a call on the pipe, and keeps the last error that it leaves. No other call is
    /// cancelled, as a line of the log that takes long would be lost.
    template <class Call>
    BOOL callPipe(const Call &call)
    {
        setInCall(true);
        const BOOL result = call();
        const LastErrorKeeper keeper;
        setInCall(false);
        return result;
    }

private:
    void main() override { body_(*this); }
    void setInCall(bool isInCall)
    {
        const std::lock_guard guard(lock_);
        isInCall_ = isInCall;
    }

    ScriptProcess &process_;
    std::function<void(StreamThread &)> body_;
    std::mutex lock_;
    bool isInCall_ = false; // under lock_
};

/// Reads up to the moment when all writers have closed the pipe, or those that are left count no more; false,
/// with the reason in the last error, if something else ended it.
bool readPipe(StreamThread &thread, HANDLE pipe, const Sink &sink)
{
    char piece[kPieceBytes];
    DWORD count = 0;
    // A read may bring no bytes: a writer wrote none. That is no end.
    while (thread.callPipe([&] { return ReadFile(pipe, piece, sizeof piece, &count, nullptr); })) {
        sink({piece, count});
    }
    const DWORD error = GetLastError();
    return error == ERROR_BROKEN_PIPE || error == ERROR_OPERATION_ABORTED;
}

/// Writes as much as the script takes; one that ends or closes its input early has all it wants. The pipe is
/// closed behind, which is how the script sees the end of its input.
void writePipe(StreamThread &thread, KernelHandle pipe, std::string_view text)
{
    while (!text.empty()) {
        DWORD written = 0;
        const DWORD length = static_cast<DWORD>(std::min<std::size_t>(text.size(), kPieceBytes));
        if (!thread.callPipe([&] { return WriteFile(pipe.get(), text.data(), length, &written, nullptr); })) {
            return;
        }
        text.remove_prefix(written);
    }
}

/// Logs a script's standard error line by line. From the first line on that exceeds a limit all are dropped,
/// so that a script that complains without end doesn't push everything else out of the log.
class ErrorLog
{
public:
    ErrorLog(const Str &label, const ScriptLimits &limits) : label_(label), limits_(limits) {}

    void add(const Str &line);
    /// Tells what was dropped.
    void finish() const;

private:
    struct Amount
    {
        std::uint64_t lines = 0;
        std::uint64_t bytes = 0;
    };

    const Str &label_;
    const ScriptLimits &limits_;
    Amount logged_;
    Amount dropped_;
};

/// The first line that does not fit ends it, so that the log has one piece of what the script wrote, from
/// its beginning.
void ErrorLog::add(const Str &line)
{
    const bool fits = dropped_.lines == 0 && logged_.lines < limits_.errorLines &&
                      logged_.bytes + line.size() <= limits_.errorBytes;
    Amount &amount = fits ? logged_ : dropped_;
    ++amount.lines;
    amount.bytes += line.size();
    if (fits) {
        modularInputsLog.warn("<stderr> %s: %s", label_.c_str(), line.c_str());
    }
}

void ErrorLog::finish() const
{
    if (dropped_.lines != 0) {
        modularInputsLog.warn("%s: too much on standard error, dropped: %llu lines, %llu bytes.",
                              label_.c_str(), static_cast<unsigned long long>(dropped_.lines),
                              static_cast<unsigned long long>(dropped_.bytes));
    }
}

/// One run: the process and the three threads around it.
class ScriptRun
{
public:
    ScriptRun(const Str &label, const Str &commandLine, const ScriptLimits &limits)
        : label_(label), limits_(limits), process_(label, commandLine)
    {
    }

    int run(std::string_view input, const Sink &onOutput);

private:
    void serveStreams(std::string_view input, const Sink &onOutput);
    void waitForEnd();
    void readOutput(StreamThread &thread, const Sink &onOutput);
    void logErrors(StreamThread &thread);

    const Str &label_;
    const ScriptLimits &limits_;
    ScriptProcess process_;
    bool outOfTime_ = false;
    /// Of the output thread, until it has been joined.
    std::exception_ptr outputFailure_;
};

int ScriptRun::run(std::string_view input, const Sink &onOutput)
{
    serveStreams(input, onOutput);
    // First, since it says more than that the time ran out.
    if (outputFailure_) {
        std::rethrow_exception(outputFailure_);
    }
    if (outOfTime_) {
        raiseScriptFailed(label_, Str::fromFormat("ended after %lld ms without an end of its own",
                                                  static_cast<long long>(limits_.time.count())));
    }
    return process_.exitStatus();
}

void ScriptRun::serveStreams(std::string_view input, const Sink &onOutput)
{
    try {
        // Destroyed in the opposite order, each with the script ended first: a thread may sit in a call on a
        // pipe that only the script's end interrupts.
        const StreamThread writer("ScriptInput", process_, [&](StreamThread &thread) {
            writePipe(thread, std::move(process_.input()), input);
        });
        const StreamThread reader("ScriptOutput", process_,
                                  [&](StreamThread &thread) { readOutput(thread, onOutput); });
        const StreamThread logger("ScriptErrors", process_, [&](StreamThread &thread) { logErrors(thread); });
        waitForEnd();
    } catch (const ThreadException &exception) {
        raiseScriptFailed(label_, exception.message());
    }
}

void ScriptRun::waitForEnd()
{
    const DWORD result = WaitForSingleObject(process_.handle(), static_cast<DWORD>(limits_.time.count()));
    if (result == WAIT_FAILED) {
        raiseScriptFailed(label_, Str::fromLastErrorFormat("%m"));
    }
    outOfTime_ = result == WAIT_TIMEOUT;
}

void ScriptRun::readOutput(StreamThread &thread, const Sink &onOutput)
{
    std::uint64_t total = 0;
    const auto take = [&](std::string_view piece) {
        total += piece.size();
        // Counted before it is handed on: nobody has to take more than the limit.
        if (total > limits_.outputBytes) {
            raiseScriptFailed(label_, Str::fromFormat("wrote more than %llu bytes",
                                                      static_cast<unsigned long long>(limits_.outputBytes)));
        }
        onOutput(piece);
    };
    try {
        if (!readPipe(thread, process_.output(), take)) {
            ModularInputsException::raise("%s: error reading from pipe: %m", label_.c_str());
        }
    } catch (...) {
        // Must not leave the thread; the run throws it again once all three are joined.
        outputFailure_ = std::current_exception();
        // Its output is of no use any more.
        process_.end();
    }
}

void ScriptRun::logErrors(StreamThread &thread)
{
    ErrorLog log(label_, limits_);
    LineSplitter lines([&log](const Str &line) { log.add(line); });
    if (!readPipe(thread, process_.errors(), [&lines](std::string_view piece) { lines.feed(piece); })) {
        modularInputsLog.warn("%s: error reading from pipe: %m", label_.c_str());
    }
    lines.finish();
    log.finish();
}

} // namespace

void LineSplitter::feed(std::string_view piece)
{
    while (!piece.empty()) {
        const std::size_t end = std::min(piece.find('\n'), piece.size());
        if (end == 0) {
            handOn();
            piece.remove_prefix(1);
            continue;
        }
        // Only now that more of the line has come: one of just this length goes out whole.
        if (line_.size() == kLongestLine) {
            handOn();
        }
        const std::size_t taken = std::min(end, kLongestLine - line_.size());
        line_.append(piece.substr(0, taken));
        piece.remove_prefix(taken);
    }
}

void LineSplitter::finish()
{
    if (!line_.empty()) {
        handOn();
    }
}

void LineSplitter::handOn()
{
    if (line_.endsWith("\r")) {
        line_.pop_back();
    }
    onLine_(line_);
    line_.clear();
}

int runScript(const Str &label, const Str &commandLine, std::string_view input,
              const std::function<void(std::string_view)> &onOutput, const ScriptLimits &limits)
{
    return ScriptRun(label, commandLine, limits).run(input, onOutput);
}

void raiseScriptFailed(const Str &label, const Str &reason)
{
    ModularInputsException::raise("%s: script running failed (%s).", label.c_str(), reason.c_str());
}

} // namespace velmox
