#include "bench/program.h"

#include "testbed/handle_count.h"

#include <psapi.h>
#include <stdexcept>

namespace velmox::bench {

namespace {

/// A program that takes longer hangs.
constexpr DWORD kLimitMilliseconds = 120'000;

void check(bool succeeded, const char *what)
{
    if (!succeeded) {
        throw std::runtime_error(Str::fromLastErrorFormat("%s: %m", what).c_str());
    }
}

void makePipe(KernelHandle &readEnd, KernelHandle &writeEnd)
{
    HANDLE ends[2] = {};
    check(CreatePipe(&ends[0], &ends[1], nullptr, 0), "CreatePipe");
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
}

/// Only what a child is to get: a write end that another child inherited as well would keep its pipe from
/// ending.
void makeInheritable(HANDLE handle)
{
    check(SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT), "SetHandleInformation");
}

PROCESS_MEMORY_COUNTERS memoryOf(HANDLE process)
{
    PROCESS_MEMORY_COUNTERS memory = {};
    check(GetProcessMemoryInfo(process, &memory, sizeof memory), "GetProcessMemoryInfo");
    return memory;
}

} // namespace

std::uint64_t ticksNow()
{
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return static_cast<std::uint64_t>(ticks.QuadPart);
}

double secondsBetween(std::uint64_t from, std::uint64_t to)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(to - from) / static_cast<double>(frequency.QuadPart);
}

OutputPipe::OutputPipe()
{
    makePipe(readEnd_, writeEnd_);
    makeInheritable(writeEnd_.get());
}

std::size_t OutputPipe::read(char *piece, std::size_t capacity)
{
    DWORD count = 0;
    check(ReadFile(readEnd_.get(), piece, static_cast<DWORD>(capacity), &count, nullptr) ||
              GetLastError() == ERROR_BROKEN_PIPE,
          "reading the output");
    return count;
}

void OutputPipe::readUntil(std::string_view mark)
{
    char piece[65536];
    for (std::size_t searched = 0; text_.find(mark, searched) == Str::npos;) {
        // The mark may be cut by the end of a piece.
        searched = text_.size() - std::min(text_.size(), mark.size());
        DWORD count = 0;
        check(ReadFile(readEnd_.get(), piece, sizeof piece, &count, nullptr), "reading the output");
        firstTicks_ = firstTicks_ != 0 ? firstTicks_ : ticksNow();
        text_.append(piece, count);
    }
    markTicks_ = ticksNow();
}

Program::Program(const Str &commandLine, HANDLE output, std::string_view input)
{
    KernelHandle readEnd;
    KernelHandle writeEnd;
    makePipe(readEnd, writeEnd);
    makeInheritable(readEnd.get());
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = readEnd.get();
    startup.hStdOutput = output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    WideStr command = WideStr::fromUtf8(commandLine);
    PROCESS_INFORMATION process = {};
    startTicks_ = ticksNow();
    check(CreateProcessW(nullptr, reinterpret_cast<wchar_t *>(command.data()), nullptr, nullptr, TRUE, 0,
                         nullptr, nullptr, &startup, &process),
          commandLine.c_str());
    CloseHandle(process.hThread);
    process_.reset(process.hProcess);
    // The child runs already and reads, so that a document larger than the pipe's buffer goes through. Both
    // ends are closed on the way out, which ends the input.
    DWORD written = 0;
    if (!input.empty()) {
        check(WriteFile(writeEnd.get(), input.data(), static_cast<DWORD>(input.size()), &written, nullptr),
              "writing the input");
    }
}

Program::~Program()
{
    TerminateProcess(process_.get(), 0);
    WaitForSingleObject(process_.get(), kLimitMilliseconds);
}

void Program::waitForEnd() const
{
    const DWORD code = waitForExitCode();
    if (code != 0) {
        throw std::runtime_error(Str::fromFormat("a program failed with %lu", code).c_str());
    }
}

DWORD Program::waitForExitCode() const
{
    check(WaitForSingleObject(process_.get(), kLimitMilliseconds) == WAIT_OBJECT_0, "waiting for a program");
    DWORD code = 0;
    check(GetExitCodeProcess(process_.get(), &code), "GetExitCodeProcess");
    return code;
}

double Program::workingSetMiB() const
{
    return static_cast<double>(memoryOf(process_.get()).WorkingSetSize) / (1 << 20);
}

double Program::peakWorkingSetMiB() const
{
    return static_cast<double>(memoryOf(process_.get()).PeakWorkingSetSize) / (1 << 20);
}

unsigned Program::handleCount() const
{
    return testbed::handleCount(pid());
}

FileHandle createOutputFile(const Str &path)
{
    FileHandle file(CreateFileW(asWide(WideStr::fromUtf8(path)), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    check(file.isValid(), path.c_str());
    makeInheritable(file.get());
    return file;
}

Str monitorCommand(DWORD watchedPid)
{
    return Str::fromFormat(
        "\"C:\\velmox\\bin\\velmox-regmon.exe\" -disableSysmonMigrate -run-until-pid-dies %lu", watchedPid);
}

Str neighbourCommand(const char *name, const Str &arguments)
{
    wchar_t self[MAX_PATH];
    check(GetModuleFileNameW(nullptr, self, MAX_PATH) != 0, "GetModuleFileNameW");
    const Str path = Str::fromUtf16(asUtf16(self));
    return Str::fromFormat("\"%s%s.exe\" %s", path.substr(0, path.rfind('\\') + 1).c_str(), name,
                           arguments.c_str());
}

std::uint64_t waitForPoll(const testbed::TestDriver &driver)
{
    // Seldom, as each question goes through Wine's server and the driver's process, and with one processor
    // takes its time from the monitor. The driver notes when the poll came.
    constexpr DWORD kPauseMilliseconds = 100;
    for (DWORD waited = 0; driver.state().reads == 0; waited += kPauseMilliseconds) {
        if (waited > kLimitMilliseconds) {
            throw std::runtime_error("the monitor does not poll the device");
        }
        Sleep(kPauseMilliseconds);
    }
    return driver.state().firstReadTicks;
}

} // namespace velmox::bench
