#include "pipeline/input/modinputs/script_run.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "pipeline/input/diagnostics/modular_inputs_log.h"
#include "pipeline/input/modinputs/line_splitter.h"
#include "pipeline/input/modinputs/script_process.h"
#include "util/thread/thread.h"

#include <algorithm>
#include <exception>
#include <iterator>

namespace velmox {

namespace {

constexpr DWORD kPieceBytes = 8192;

using Sink = std::function<void(std::string_view)>;

/// Serves one stream of a script. The body must not throw. The script ends before the thread is joined: it,
/// or what it leaves running, may hold the pipe open.
class StreamThread : public Thread
{
public:
    StreamThread(const char *name, ScriptProcess &process, std::function<void()> body)
        : Thread("%s", name), process_(process), body_(std::move(body))
    {
        start();
    }
    ~StreamThread() noexcept(false) override
    {
        process_.end();
        joinOrCancel();
    }

private:
    void main() override { body_(); }

    ScriptProcess &process_;
    std::function<void()> body_;
};

/// Reads up to the moment when all writers have closed the pipe; false, with the reason in the last error, if
/// something else ended it.
bool readPipe(HANDLE pipe, const Sink &sink)
{
    char piece[kPieceBytes];
    DWORD count = 0;
    while (ReadFile(pipe, piece, sizeof piece, &count, nullptr)) {
        sink({piece, count});
    }
    return GetLastError() == ERROR_BROKEN_PIPE;
}

/// Writes as much as the script takes; one that ends or closes its input early has all it wants.
void writePipe(KernelHandle pipe, std::string_view text)
{
    while (!text.empty()) {
        DWORD written = 0;
        const DWORD length = static_cast<DWORD>(std::min<std::size_t>(text.size(), kPieceBytes));
        if (!WriteFile(pipe.get(), text.data(), length, &written, nullptr)) {
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
        : label_(label), limits_(limits), process_(label, commandLine),
          stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr))
    {
    }

    int run(std::string_view input, const Sink &onOutput);

private:
    void serveStreams(std::string_view input, const Sink &onOutput);
    void waitForEnd();
    void readOutput(const Sink &onOutput);
    void logErrors();

    const Str &label_;
    const ScriptLimits &limits_;
    ScriptProcess process_;
    KernelHandle stop_;
    bool outOfTime_ = false;
    /// Of the output thread, until it has been joined.
    std::exception_ptr outputFailure_;
};

int ScriptRun::run(std::string_view input, const Sink &onOutput)
{
    serveStreams(input, onOutput);
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
    const StreamThread writer("ScriptInput", process_,
                              [&] { writePipe(std::move(process_.input()), input); });
    const StreamThread reader("ScriptOutput", process_, [&] { readOutput(onOutput); });
    const StreamThread logger("ScriptErrors", process_, [&] { logErrors(); });
    waitForEnd();
}

void ScriptRun::waitForEnd()
{
    const HANDLE either[] = {process_.handle(), stop_.get()};
    const DWORD result = WaitForMultipleObjects(static_cast<DWORD>(std::size(either)), either, FALSE,
                                                static_cast<DWORD>(limits_.time.count()));
    if (result == WAIT_FAILED) {
        raiseScriptFailed(label_, Str::fromLastErrorFormat("%m"));
    }
    outOfTime_ = result == WAIT_TIMEOUT;
}

void ScriptRun::readOutput(const Sink &onOutput)
{
    std::uint64_t total = 0;
    const auto take = [&](std::string_view piece) {
        total += piece.size();
        if (total > limits_.outputBytes) {
            raiseScriptFailed(label_, Str::fromFormat("wrote more than %llu bytes",
                                                      static_cast<unsigned long long>(limits_.outputBytes)));
        }
        onOutput(piece);
    };
    try {
        if (!readPipe(process_.output(), take)) {
            ModularInputsException::raise("%s: error reading from pipe: %m", label_.c_str());
        }
    } catch (...) {
        outputFailure_ = std::current_exception();
        SetEvent(stop_.get());
    }
}

void ScriptRun::logErrors()
{
    ErrorLog log(label_, limits_);
    LineSplitter lines([&log](const Str &line) { log.add(line); });
    if (!readPipe(process_.errors(), [&lines](std::string_view piece) { lines.feed(piece); })) {
        modularInputsLog.warn("%s: error reading from pipe: %m", label_.c_str());
    }
    lines.finish();
    log.finish();
}

} // namespace

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
