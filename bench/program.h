#pragma once

#include "testbed/driver_control.h"
#include "util/system/owned_handle.h"
#include "util/text/str.h"

#include <cstdint>

namespace velmox::bench {

/// Ticks of QueryPerformanceCounter, the clock of the stand-in driver's state.
std::uint64_t ticksNow();
double secondsBetween(std::uint64_t from, std::uint64_t to);

/// A pipe whose read end stays here, for the output of a child. Failures throw std::runtime_error. For one
/// thread.
class OutputPipe
{
public:
    OutputPipe();

    /// For a child's standard output.
    HANDLE writeEnd() const { return writeEnd_.get(); }
    /// To be called once the child has started, so that the pipe ends with it.
    void closeWriteEnd() { writeEnd_.reset(); }

    /// Reads what there is, or waits for something; 0 at the end.
    std::size_t read(char *piece, std::size_t capacity);

    /// Reads until `mark` has come. Throws std::runtime_error when the pipe ends before it.
    void readUntil(std::string_view mark);

    /// When the first bytes came, and when the mark.
    std::uint64_t firstTicks() const { return firstTicks_; }
    std::uint64_t markTicks() const { return markTicks_; }
    const Str &text() const { return text_; }

private:
    KernelHandle readEnd_;
    KernelHandle writeEnd_;
    Str text_;
    std::uint64_t firstTicks_ = 0;
    std::uint64_t markTicks_ = 0;
};

/// A child process, ended by the destructor at the latest. Failures throw std::runtime_error.
class Program
{
public:
    /// `output` becomes the standard output, `input` what can be read from the standard input, which then
    /// ends; the handle stays the caller's, and must be inheritable.
    Program(const Str &commandLine, HANDLE output, std::string_view input = {});
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    std::uint64_t startTicks() const { return startTicks_; }
    /// Throws when the exit code is not 0.
    void waitForEnd() const;
    DWORD waitForExitCode() const;
    void terminate() { TerminateProcess(process_.get(), 0); }
    double workingSetMiB() const;
    double peakWorkingSetMiB() const;
    unsigned handleCount() const;
    DWORD pid() const { return GetProcessId(process_.get()); }

private:
    std::uint64_t startTicks_ = 0;
    KernelHandle process_;
};

/// A file of drive C for a child to write into.
FileHandle createOutputFile(const Str &path);

/// The command line of the installed program, which watches this process or another.
Str monitorCommand(DWORD watchedPid = GetCurrentProcessId());
/// The command line of a program that was built beside this one.
Str neighbourCommand(const char *name, const Str &arguments = {});

/// Waits for the monitor's first poll of the device since the driver was reset; returns its time.
std::uint64_t waitForPoll(const testbed::TestDriver &driver);

} // namespace velmox::bench
