#pragma once

#include "util/system/owned_handle.h"
#include "util/text/wide_str.h"

namespace velmox {

/// A process alone in a job, so that whatever it starts ends with it, at the latest with this object.
///
/// Before Windows 8 a process is in one job at most: there a caller that is in one itself gets a process
/// without a job of its own, whose children outlive it.
class JobProcess
{
public:
    JobProcess() = default;
    ~JobProcess() { end(); }
    JobProcess(const JobProcess &) = delete;
    JobProcess &operator=(const JobProcess &) = delete;

    /// Starts it as CreateProcessW would, inheriting what the caller lets it; to be called once. False, with
    /// the reason in the last error, when it does not run.
    bool start(const WideStr &commandLine, DWORD flags, STARTUPINFOW &startup);

    /// Signalled when the process itself has ended, whatever it has started. Owned by this object.
    HANDLE handle() const { return process_.get(); }
    /// Ends the process if it still runs, and everything that it started; waits at most 10 s for its end.
    /// Keeps the last error. Several threads may call it at once.
    void end();
    /// After the end.
    DWORD exitStatus() const;

private:
    KernelHandle job_;
    KernelHandle process_;
};

} // namespace velmox
