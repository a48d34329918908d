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
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<char> bytes(size);
    auto *const attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(bytes.data());
    require(InitializeProcThreadAttributeList(attributes, 1, 0, &size), "InitializeProcThreadAttributeList");
    require(UpdateProcThreadAttribute(attributes, 0, kPseudoConsoleAttribute, console_, sizeof(console_),
                                      nullptr, nullptr),
            "UpdateProcThreadAttribute");
    STARTUPINFOEXW startup = {.StartupInfo = {.cb = sizeof startup}, .lpAttributeList = attributes};
    unsigned pid = 0;
    process_ = startProcess(commandLine, environment, EXTENDED_STARTUPINFO_PRESENT, startup.StartupInfo, pid);
    DeleteProcThreadAttributeList(attributes);
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
