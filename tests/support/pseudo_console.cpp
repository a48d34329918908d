#include "tests/support/pseudo_console.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace velmox::testing {

namespace {

// Declared by headers for Windows 10 only.
constexpr DWORD_PTR kPseudoConsoleAttribute = 0x00020016;
constexpr DWORD kLimit = 30'000;

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

PseudoConsole::PseudoConsole(const Str &commandLine)
{
    HANDLE keyboardReader = nullptr;
    HANDLE keyboardWriter = nullptr;
    require(CreatePipe(&keyboardReader, &keyboardWriter, nullptr, 0), "CreatePipe");
    const KernelHandle reader(keyboardReader);
    keyboard_.reset(keyboardWriter);
    HANDLE screenReader = nullptr;
    HANDLE screenWriter = nullptr;
    require(CreatePipe(&screenReader, &screenWriter, nullptr, 0), "CreatePipe");
    screen_.reset(screenReader);
    const KernelHandle screen(screenWriter);
    require(SUCCEEDED(find<CreateConsole>("CreatePseudoConsole")({80, 25}, reader.get(), screen.get(), 0,
                                                                 &console_)),
            "CreatePseudoConsole");
    StartupAttributes attributes(console_);
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof(startup);
    startup.lpAttributeList = attributes.get();
    WideStr command;
    command.appendUtf8(commandLine.c_str());
    std::wstring mutableCommand(asWide(command));
    PROCESS_INFORMATION process{};
    require(CreateProcessW(nullptr, mutableCommand.data(), nullptr, nullptr, FALSE,
                           EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &startup.StartupInfo, &process),
            "CreateProcessW");
    CloseHandle(process.hThread);
    process_.reset(process.hProcess);
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
    WaitForSingleObject(process_.get(), kLimit);
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

} // namespace velmox::testing
