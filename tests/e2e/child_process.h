#pragma once

#include "util/owned_handle.h"
#include "util/str.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace velmox::e2e {

using TextCondition = std::function<bool(const Str &)>;

/// Collects what comes out of a pipe, on a thread of its own.
class PipeReader
{
public:
    explicit PipeReader(KernelHandle pipe);
    ~PipeReader();
    PipeReader(const PipeReader &) = delete;
    PipeReader &operator=(const PipeReader &) = delete;

    Str text() const;
    /// Waits until every writer has closed the pipe; false when the limit comes first.
    bool waitForEnd(std::chrono::seconds limit);
    /// Waits until the text meets the condition, the pipe ends or the limit comes.
    bool waitFor(const TextCondition &condition, std::chrono::seconds limit);

private:
    void collect();

    KernelHandle pipe_;
    mutable std::mutex lock_;
    std::condition_variable grown_;
    // Both guarded by lock_.
    Str text_;
    bool atEnd_ = false;
    std::thread thread_;
};

/// A process as a server starts it: with pipes on its three standard streams.
class ChildProcess
{
public:
    /// `environment` rows are NAME=value and replace what the caller's environment says. Throws
    /// std::runtime_error when the process cannot be started.
    ChildProcess(const Str &commandLine, const StrVector &environment = {}, bool withInput = true);
    /// Ends the process if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    DWORD pid() const { return pid_; }
    HANDLE handle() const { return process_.get(); }

    void writeInput(std::string_view bytes);
    void closeInput() { input_.reset(); }

    Str output() const { return output_->text(); }
    Str errors() const { return errors_->text(); }
    /// Waits until what came out so far meets the condition, or can no longer change.
    bool waitForOutput(const TextCondition &condition) const;
    /// False when the process still runs after the limit. On success the output is complete.
    bool waitForExit(std::chrono::seconds limit = std::chrono::seconds(20));
    /// All 32 bits; after `waitForExit`.
    DWORD exitCode() const;
    void kill();

private:
    KernelHandle process_;
    KernelHandle input_;
    DWORD pid_ = 0;
    std::unique_ptr<PipeReader> output_;
    std::unique_ptr<PipeReader> errors_;
};

/// A process that does nothing and lives until it is ended: a server to be watched.
class IdleProcess
{
public:
    IdleProcess();
    ~IdleProcess();

    DWORD pid() const { return pid_; }
    void end();

private:
    KernelHandle process_;
    DWORD pid_ = 0;
};

} // namespace velmox::e2e
