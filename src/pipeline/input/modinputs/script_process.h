#pragma once

#include "util/process/job_process.h"
#include "util/text/str.h"

namespace velmox {

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
    /// Ends the script if it still runs, and everything that it started.
    void end() { process_.end(); }
    /// After the end.
    int exitStatus() const { return static_cast<int>(process_.exitStatus()); }

    /// This side's ends of the pipes.
    KernelHandle &input() { return input_; }
    HANDLE output() const { return output_.get(); }
    HANDLE errors() const { return errors_.get(); }

private:
    void start(const Str &commandLine, HANDLE input, HANDLE output, HANDLE errors);

    KernelHandle input_;
    KernelHandle output_;
    KernelHandle errors_;
    JobProcess process_;
};

} // namespace velmox
