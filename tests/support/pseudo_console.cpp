#include "tests/support/pseudo_console.h"

#include "tests/support/child_process.h"

#include <stdexcept>
#include <vector>

namespace velmox::testing {

namespace {

// Declared by headers for Windows 10 only.
constexpr DWORD_PTR kPseudoConsoleAttribute = 0x00020016;

template <class Function>
Function find(const char *name)
{
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name);
    if (function == nullptr) {
        throw std::runtime_error("no pseudo consoles");
    }
    return reinterpret_cast<Function>(reinterpret_cast<void *>(function));
}

using CreateConsole = HRESULT(WINAPI *)(COORD, HANDLE, HANDLE, DWORD, void **);
using CloseConsole = void(WINAPI *)(void *);

void require(bool done, const char *what)
{
    if (!done) {
        throw std::runtime_error(what);
    }
}

/// The attribute list that puts a process on a console.
class StartupAttributes
{
public:
    explicit StartupAttributes(void *console)
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        bytes_.resize(size);
        require(InitializeProcThreadAttributeList(get(), 1, 0, &size), "InitializeProcThreadAttributeList");
        require(UpdateProcThreadAttribute(get(), 0, kPseudoConsoleAttribute, console, sizeof(console),
                                          nullptr, nullptr),
                "UpdateProcThreadAttribute");
    }
    ~StartupAttributes() { DeleteProcThreadAttributeList(get()); }
    StartupAttributes(const StartupAttributes &) = delete;
    StartupAttributes &operator=(const StartupAttributes &) = delete;

    LPPROC_THREAD_ATTRIBUTE_LIST get()
    {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(bytes_.data());
    }

private:
    std::vector<char> bytes_;
};

} // namespace

PseudoConsole::PseudoConsole(const Str &commandLine, const StrVector &environment)
{
    Pipe keyboard = makePipe();
    Pipe screen = makePipe();
    keyboard_ = std::move(keyboard.writer);
    screen_ = std::move(screen.reader);
    require(SUCCEEDED(find<CreateConsole>("CreatePseudoConsole")({80, 25}, keyboard.reader.get(),
                                                                 screen.writer.get(), 0, &console_)),
            "CreatePseudoConsole");
    StartupAttributes attributes(console_);
    STARTUPINFOEXW startup = {.StartupInfo = {.cb = sizeof startup}, .lpAttributeList = attributes.get()};
    unsigned pid = 0;
    process_ = startProcess(commandLine, environment, EXTENDED_STARTUPINFO_PRESENT, startup.StartupInfo, pid);
}

PseudoConsole::~PseudoConsole()
{
    TerminateProcess(process_.get(), 1);
    find<CloseConsole>("ClosePseudoConsole")(console_);
}

void PseudoConsole::pressCtrlC()
{
    // Wine's console takes a bare ETX as the end of all input; behind an escape it is the key.
    const char keys[] = {'\x1b', '\x03'};
    DWORD written = 0;
    require(WriteFile(keyboard_.get(), keys, sizeof(keys), &written, nullptr), "WriteFile");
}

DWORD PseudoConsole::exitCode()
{
    return waitForExitCode(process_);
}

} // namespace velmox::testing
