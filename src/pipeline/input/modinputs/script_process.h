#pragma once

#include "util/owned_handle.h"
#include "util/str.h"

namespace velmox {

/// A running script with pipes on its three standard streams, alone in a job: whatever it starts ends with
/// it, at the latest with this object.
///
/// The script inherits its ends of the pipes and no other handle, so that scripts can be started from any
/// number of threads. It has no window.
class ScriptProcess
{
public:
    /// Throws ModularInputsException, with `label` in front of what says that the pipes could not be made.
    ScriptProcess(const Str &label, const Str &commandLine);
    ~ScriptProcess() { end(); }
    ScriptProcess(const ScriptProcess &) = delete;
    ScriptProcess &operator=(const ScriptProcess &) = delete;

    /// Signalled when the script itself has ended.
    HANDLE handle() const { return process_.get(); }
    /// Ends the script if it still runs, and everything that it started.
    void end();
    /// After the end.
    int exitStatus() const;

    /// This side's ends of the pipes.
    KernelHandle &input() { return input_; }
    HANDLE output() const { return output_.get(); }
    HANDLE errors() const { return errors_.get(); }

private:
    void start(const Str &commandLine, HANDLE input, HANDLE output, HANDLE errors);

    KernelHandle job_;
    KernelHandle process_;
    KernelHandle input_;
    KernelHandle output_;
    KernelHandle errors_;
};

} // namespace velmox
