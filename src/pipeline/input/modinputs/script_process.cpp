#include "pipeline/input/modinputs/script_process.h"

#include "pipeline/input/modular_inputs_exception.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <vector>

namespace velmox {

namespace {

// What a job's processes are told to exit with when they are ended from outside.
constexpr UINT kEndedFromOutside = 1;

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
    return SetHandleInformation(end == ScriptEnd::Reads ? reader : writer, HANDLE_FLAG_INHERIT,
                                HANDLE_FLAG_INHERIT) != FALSE;
}

/// The list of the handles that a new process inherits; the handles must stand as long as it does.
class InheritedHandles
{
public:
    InheritedHandles(HANDLE *handles, std::size_t count)
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        storage_.resize(size);
        isValid_ = InitializeProcThreadAttributeList(list(), 1, 0, &size) != FALSE &&
                   UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                             count * sizeof(HANDLE), nullptr, nullptr) != FALSE;
    }
    ~InheritedHandles()
    {
        const DWORD error = GetLastError();
        DeleteProcThreadAttributeList(list());
        SetLastError(error);
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
    bool isValid_ = false;
};

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

[[noreturn]] void raiseUnableToRun(const Str &commandLine)
{
    ModularInputsException::raise("Unable to run \"%s\": %m", commandLine.c_str());
}

} // namespace

ScriptProcess::ScriptProcess(const Str &label, const Str &commandLine)
{
    Pipe input;
    Pipe output;
    Pipe errors;
    if (!makePipe(input, ScriptEnd::Reads) || !makePipe(output, ScriptEnd::Writes) ||
        !makePipe(errors, ScriptEnd::Writes)) {
        ModularInputsException::raise("%s: pipe setup fail: %m", label.c_str());
    }
    input_ = std::move(input.writer);
    output_ = std::move(output.reader);
    errors_ = std::move(errors.reader);
    start(commandLine, input.reader.get(), output.writer.get(), errors.writer.get());
}

/// The process begins to run only when it is in the job, so that it can start nothing outside.
void ScriptProcess::start(const Str &commandLine, HANDLE input, HANDLE output, HANDLE errors)
{
    HANDLE inherited[] = {input, output, errors};
    InheritedHandles attributes(inherited, std::size(inherited));
    job_ = makeJob();
    if (!attributes.isValid() || !job_.isValid()) {
        raiseUnableToRun(commandLine);
    }
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = input;
    startup.StartupInfo.hStdOutput = output;
    startup.StartupInfo.hStdError = errors;
    startup.lpAttributeList = attributes.list();
    WideStr writableCommand = WideStr::fromUtf8(commandLine);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, reinterpret_cast<wchar_t *>(writableCommand.data()), nullptr, nullptr, TRUE,
                        CREATE_SUSPENDED | CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                        &startup.StartupInfo, &process)) {
        raiseUnableToRun(commandLine);
    }
    process_.reset(process.hProcess);
    const KernelHandle thread(process.hThread);
    if (!AssignProcessToJobObject(job_.get(), process_.get()) ||
        ResumeThread(thread.get()) == static_cast<DWORD>(-1)) {
        const DWORD error = GetLastError();
        TerminateProcess(process_.get(), kEndedFromOutside);
        SetLastError(error);
        raiseUnableToRun(commandLine);
    }
}

void ScriptProcess::end()
{
    if (process_.isValid()) {
        TerminateJobObject(job_.get(), kEndedFromOutside);
        WaitForSingleObject(process_.get(), INFINITE);
    }
}

int ScriptProcess::exitStatus() const
{
    DWORD status = 0;
    GetExitCodeProcess(process_.get(), &status);
    return static_cast<int>(status);
}

} // namespace velmox
