#pragma once

#include "util/owned_handle.h"
#include "util/str.h"

#include <condition_variable>
#include <mutex>
#include <string_view>
#include <thread>

namespace velmox::testing {

/// The folder of the running test program, with a backslash behind it: helper programs are built there.
Str programFolder();

/// A helper program started by a test, with pipes on its standard streams; output and errors come together.
///
/// Every wait is bounded. The process is ended with the object.
class ChildProcess
{
public:
    /// `environment` rows are NAME=value, set for the child alone; an empty value unsets the name.
    explicit ChildProcess(const Str &commandLine, const StrVector &environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    unsigned pid() const { return pid_; }
    void writeLine(std::string_view text);
    bool waitForOutput(std::string_view text);
    void kill(unsigned exitCode);

    /// Waits for the end: all 32 bits of the exit code, or STILL_ACTIVE when the wait runs out.
    DWORD exitCode();
    /// Everything written, without carriage returns; whole after `exitCode`.
    Str output();

private:
    void collect();

    KernelHandle process_;
    KernelHandle input_;
    KernelHandle outputEnd_;
    unsigned pid_ = 0;
    std::mutex lock_;
    std::condition_variable grown_;
    Str output_;         // under lock_
    bool ended_ = false; // under lock_
    std::thread reader_;
};

} // namespace velmox::testing
