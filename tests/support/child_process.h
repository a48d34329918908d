#pragma once

#include "util/system/owned_handle.h"
#include "util/text/str.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

namespace velmox::testing {

/// The running test program, and its folder with a backslash behind it: helper programs are built there.
Str programPath();
Str programFolder();

struct Pipe
{
    KernelHandle reader;
    KernelHandle writer;
};
Pipe makePipe();

/// Starts a process, which inherits the standard handles that `startup` may have. `environment` rows are
/// NAME=value and replace what the caller's environment says, which has them while the process is made; an
/// empty value unsets the name. Throws std::runtime_error on failure.
KernelHandle startProcess(const Str &commandLine, const StrVector &environment, DWORD flags,
                          STARTUPINFOW &startup, unsigned &pid);

/// All 32 bits, or STILL_ACTIVE when the process has not ended after 100 s.
DWORD waitForExitCode(const KernelHandle &process);

using TextCondition = std::function<bool(const Str &)>;

/// Collects what comes out of a pipe, on a thread of its own. Every wait is bounded.
class PipeReader
{
public:
    explicit PipeReader(KernelHandle pipe) : pipe_(std::move(pipe)) {}
    ~PipeReader();
    PipeReader(const PipeReader &) = delete;
    PipeReader &operator=(const PipeReader &) = delete;

    void start();
    Str text() const;
    /// Waits until the text meets the condition or can no longer change.
    bool waitFor(const TextCondition &condition);
    /// Waits until every writer has closed the pipe; true at once for one that was never started.
    bool waitForEnd();

private:
    void collect();

    KernelHandle pipe_;
    mutable std::mutex lock_;
    std::condition_variable grown_;
    Str text_;           // under lock_
    bool atEnd_ = false; // under lock_
    std::thread thread_;
};

/// What a child's standard streams are. Input is a pipe but for `NoInput`.
enum class Streams
{
    Together, ///< errors come where output does
    Apart,
    NoInput, ///< apart, and the one is not there at all
    NoOutput,
    Unread, ///< apart, and nobody reads the output until `readOutput`
};

/// A program started by a test, with pipes on its standard streams.
///
/// Every wait is bounded. The process is ended with the object.
class ChildProcess
{
public:
    /// `environment` rows are NAME=value and replace what the caller's environment says; an empty value
    /// unsets the name. Throws std::runtime_error when the process cannot be started.
    explicit ChildProcess(const Str &commandLine, const StrVector &environment = {},
                          Streams streams = Streams::Together);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    unsigned pid() const { return pid_; }

    void write(std::string_view bytes);
    void writeLine(std::string_view text) { write(Str(text).append("\n")); }
    void closeInput() { input_.reset(); }

    /// Wait until what came out so far contains the text, carriage returns aside, or meets the condition, or
    /// can no longer change.
    bool waitForOutput(std::string_view text);
    bool waitForOutput(const TextCondition &condition) { return output_->waitFor(condition); }
    void readOutput() { output_->start(); }
    /// Leaves the child with an output that has no reader; for `Unread`.
    void closeOutput() { output_ = std::make_unique<PipeReader>(KernelHandle()); }

    void kill(unsigned exitCode);
    DWORD exitCode();
    /// Whether the process has ended, or comes to, and nobody else holds its streams.
    bool waitForEnd();

    /// Everything written, without carriage returns; whole after `exitCode`.
    Str output();
    /// What came so far, to the byte.
    Str outputBytes() const { return output_->text(); }
    Str errorBytes() const { return errors_->text(); }

private:
    KernelHandle process_;
    KernelHandle input_;
    unsigned pid_ = 0;
    std::unique_ptr<PipeReader> output_;
    std::unique_ptr<PipeReader> errors_;
};

/// A process that does nothing and lives until it is ended: a server to be watched.
class IdleProcess
{
public:
    IdleProcess();
    ~IdleProcess() { end(); }
    IdleProcess(const IdleProcess &) = delete;
    IdleProcess &operator=(const IdleProcess &) = delete;

    unsigned pid() const { return pid_; }
    void end();

private:
    KernelHandle process_;
    unsigned pid_ = 0;
};

} // namespace velmox::testing
