#include "util/process/job_process.h"

#include "util/system/last_error_keeper.h"

namespace velmox {

namespace {

constexpr UINT kEndedFromOutside = 1;
/// A process goes once its pending calls have. One that cannot be ended must not hold up its caller for ever.
constexpr DWORD kEndMs = 10'000;

/// A job that ends its processes when its last handle is closed.
KernelHandle makeJob()
{
    KernelHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job.isValid() &&
        !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
        job.reset();
    }
    return job;
}

} // namespace

/// The process begins to run only when it is in the job, so that it can start nothing outside.
bool JobProcess::start(const WideStr &commandLine, DWORD flags, STARTUPINFOW &startup)
{
    job_ = makeJob();
    if (!job_.isValid()) {
        return false;
    }
    // CreateProcessW may write into it.
    WideStr writable = commandLine;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, reinterpret_cast<wchar_t *>(writable.data()), nullptr, nullptr, TRUE,
                        flags | CREATE_SUSPENDED, nullptr, nullptr, &startup, &process)) {
        return false;
    }
    process_.reset(process.hProcess);
    const KernelHandle thread(process.hThread);
    if (!AssignProcessToJobObject(job_.get(), process_.get())) {
        job_.reset();
    }
    // It would stand still for ever, and nobody would wait for it.
    if (ResumeThread(thread.get()) == static_cast<DWORD>(-1)) {
        end();
        return false;
    }
    return true;
}

void JobProcess::end()
{
    if (!process_.isValid()) {
        return;
    }
    const LastErrorKeeper keeper;
    if (!job_.isValid() || !TerminateJobObject(job_.get(), kEndedFromOutside)) {
        TerminateProcess(process_.get(), kEndedFromOutside);
    }
    WaitForSingleObject(process_.get(), kEndMs);
}

DWORD JobProcess::exitStatus() const
{
    DWORD status = 0;
    GetExitCodeProcess(process_.get(), &status);
    return status;
}

} // namespace velmox
