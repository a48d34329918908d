#include "tests/support/child_process.h"

#include <chrono>
#include <stdexcept>

namespace velmox::testing {

namespace {

constexpr std::chrono::seconds kLimit(30);

struct Pipe
{
    KernelHandle reader;
    KernelHandle writer;
};

/// Only the child's end is inherited.
Pipe makePipe(bool childReads)
{
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    if (!CreatePipe(&reader, &writer, &inherited, 0)) {
        throw std::runtime_error("CreatePipe failed");
    }
    SetHandleInformation(childReads ? writer : reader, HANDLE_FLAG_INHERIT, 0);
    return {KernelHandle(reader), KernelHandle(writer)};
}

/// Sets variables for the time of a start; the child inherits them.
class ScopedEnvironment
{
public:
    explicit ScopedEnvironment(const StrVector &rows)
    {
        for (const Str &row : rows) {
            const std::size_t equals = row.find("=");
            names_.push_back(row.substr(0, equals));
            const Str value = row.substr(equals + 1);
            SetEnvironmentVariableA(names_.back().c_str(), value.empty() ? nullptr : value.c_str());
        }
    }
    ~ScopedEnvironment()
    {
        for (const Str &name : names_) {
            SetEnvironmentVariableA(name.c_str(), nullptr);
        }
    }
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    StrVector names_;
};

} // namespace

Str programFolder()
{
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    Str folder = Str::fromUtf16({asUtf16(path), length});
    folder.resize(folder.rfind("\\") + 1);
    return folder;
}

ChildProcess::ChildProcess(const Str &commandLine, const StrVector &environment)
{
    const ScopedEnvironment scoped(environment);
    Pipe input = makePipe(true);
    Pipe output = makePipe(false);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.reader.get();
    startup.hStdOutput = output.writer.get();
    startup.hStdError = output.writer.get();
    PROCESS_INFORMATION process{};
    WideStr command;
    command.appendUtf8(commandLine.c_str());
    std::wstring mutableCommand(asWide(command));
    if (!CreateProcessW(nullptr, mutableCommand.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process)) {
        throw std::runtime_error(Str::fromLastErrorFormat("%s: %m", commandLine.c_str()).c_str());
    }
    CloseHandle(process.hThread);
    process_.reset(process.hProcess);
    pid_ = process.dwProcessId;
    input_ = std::move(input.writer);
    outputEnd_ = std::move(output.reader);
    reader_ = std::thread([this] { collect(); });
}

ChildProcess::~ChildProcess()
{
    kill(1);
    reader_.join();
}

void ChildProcess::collect()
{
    char buffer[512];
    DWORD count = 0;
    while (ReadFile(outputEnd_.get(), buffer, sizeof(buffer), &count, nullptr) && count != 0) {
        const std::lock_guard guard(lock_);
        for (DWORD i = 0; i < count; ++i) {
            if (buffer[i] != '\r') {
                output_ << buffer[i];
            }
        }
        grown_.notify_all();
    }
    const std::lock_guard guard(lock_);
    ended_ = true;
    grown_.notify_all();
}

void ChildProcess::writeLine(std::string_view text)
{
    Str line;
    line << text << "\n";
    DWORD written = 0;
    WriteFile(input_.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

bool ChildProcess::waitForOutput(std::string_view text)
{
    std::unique_lock lock(lock_);
    const auto stands = [&] { return output_.find(text) != Str::npos; };
    grown_.wait_for(lock, kLimit, [&] { return ended_ || stands(); });
    return stands();
}

void ChildProcess::kill(unsigned exitCode)
{
    TerminateProcess(process_.get(), exitCode);
    WaitForSingleObject(process_.get(), INFINITE);
}

DWORD ChildProcess::exitCode()
{
    WaitForSingleObject(process_.get(), static_cast<DWORD>(std::chrono::milliseconds(kLimit).count()));
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

Str ChildProcess::output()
{
    std::unique_lock lock(lock_);
    grown_.wait_for(lock, kLimit, [&] { return ended_; });
    return output_;
}

} // namespace velmox::testing
