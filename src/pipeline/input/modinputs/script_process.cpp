#include "pipeline/input/modinputs/script_process.h"

#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "util/system/last_error_keeper.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace velmox {

namespace {

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
        isInitialized_ = InitializeProcThreadAttributeList(list(), 1, 0, &size) != FALSE;
        isValid_ =
            isInitialized_ && UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                                        count * sizeof(HANDLE), nullptr, nullptr) != FALSE;
    }
    ~InheritedHandles()
    {
        const LastErrorKeeper keeper;
        if (isInitialized_) {
            DeleteProcThreadAttributeList(list());
        }
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
    bool isInitialized_ = false;
    bool isValid_ = false;
};

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

void ScriptProcess::start(const Str &commandLine, HANDLE input, HANDLE output, HANDLE errors)
{
    HANDLE inherited[] = {input, output, errors};
    InheritedHandles attributes(inherited, std::size(inherited));
    if (!attributes.isValid()) {
        raiseUnableToRun(commandLine);
    }
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = input;
    startup.StartupInfo.hStdOutput = output;
    startup.StartupInfo.hStdError = errors;
    startup.lpAttributeList = attributes.list();
    if (!process_.start(WideStr::fromUtf8(commandLine), CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT,
                        startup.StartupInfo)) {
        raiseUnableToRun(commandLine);
    }
}

} // namespace velmox
