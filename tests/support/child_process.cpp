#include "tests/support/child_process.h"

#include "tests/support/scoped_variable.h"

#include <chrono>
#include <list>
#include <stdexcept>

namespace velmox::testing {

namespace {

constexpr std::chrono::seconds kLimit(100);
constexpr DWORD kLimitMilliseconds = 100'000;

Str withoutReturns(Str text)
{
    text.replaceAll("\r", "");
    return text;
}

} // namespace

Pipe makePipe()
{
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    if (!CreatePipe(&reader, &writer, nullptr, 0)) {
        throw std::runtime_error("CreatePipe failed");
    }
    return {KernelHandle(reader), KernelHandle(writer)};
}

KernelHandle startProcess(const Str &commandLine, const StrVector &environment, DWORD flags,
                          STARTUPINFOW &startup, unsigned &pid)
{
    const BOOL inherits = (startup.dwFlags & STARTF_USESTDHANDLES) != 0;
    for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
        SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    WideStr command = WideStr::fromUtf8(commandLine);
    std::list<ScopedVariable> variables;
    for (const Str &row : environment) {
        const WideStr wide = WideStr::fromUtf8(row);
        const std::size_t equals = wide.find(u'=');
        variables.emplace_back(wide.substr(0, equals), wide.substr(equals + 1));
    }
    PROCESS_INFORMATION process = {};
    const auto start = [&] {
        return CreateProcessW(nullptr, reinterpret_cast<wchar_t *>(command.data()), nullptr, nullptr,
                              inherits, flags, nullptr, nullptr, &startup, &process) != FALSE;
    };
    // Wine loses a process while it starts, one in thousands.
    if (!start() && (GetLastError() != ERROR_INTERNAL_ERROR || !start())) {
        throw std::runtime_error(Str::fromLastErrorFormat("%s: %m", commandLine.c_str()).c_str());
    }
    CloseHandle(process.hThread);
    pid = process.dwProcessId;
    return KernelHandle(process.hProcess);
}

DWORD waitForExitCode(const KernelHandle &process)
{
    WaitForSingleObject(process.get(), kLimitMilliseconds);
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process.get(), &code);
    return code;
}

Str programPath()
{
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    return Str::fromUtf16({asUtf16(path), length});
}

Str programFolder()
{
    Str folder = programPath();
    folder.resize(folder.rfind("\\") + 1);
    return folder;
}

PipeReader::~PipeReader()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}

void PipeReader::start()
{
    thread_ = std::thread([this] { collect(); });
}

void PipeReader::collect()
{
    char piece[4096];
    DWORD count = 0;
    while (ReadFile(pipe_.get(), piece, sizeof piece, &count, nullptr) && count != 0) {
        const std::lock_guard guard(lock_);
        text_.append(piece, count);
        grown_.notify_all();
    }
    const std::lock_guard guard(lock_);
    atEnd_ = true;
    grown_.notify_all();
}

Str PipeReader::text() const
{
    const std::lock_guard guard(lock_);
    return text_;
}

bool PipeReader::waitFor(const TextCondition &condition)
{
    std::unique_lock guard(lock_);
    grown_.wait_for(guard, kLimit, [&] { return atEnd_ || condition(text_); });
    return condition(text_);
}

bool PipeReader::waitForEnd()
{
    std::unique_lock guard(lock_);
    return !thread_.joinable() || grown_.wait_for(guard, kLimit, [this] { return atEnd_; });
}

ChildProcess::ChildProcess(const Str &commandLine, const StrVector &environment, Streams streams)
{
    Pipe input = makePipe();
    Pipe output = makePipe();
    Pipe errors = makePipe();
    STARTUPINFOW startup = {.cb = sizeof startup};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = streams == Streams::NoInput ? nullptr : input.reader.get();
    startup.hStdOutput = streams == Streams::NoOutput ? nullptr : output.writer.get();
    startup.hStdError = streams == Streams::Together ? startup.hStdOutput : errors.writer.get();
    process_ = startProcess(commandLine, environment, 0, startup, pid_);
    input_ = std::move(input.writer);
    output_ = std::make_unique<PipeReader>(std::move(output.reader));
    errors_ = std::make_unique<PipeReader>(std::move(errors.reader));
    errors_->start();
    if (streams != Streams::Unread && streams != Streams::NoOutput) {
        output_->start();
    }
}

ChildProcess::~ChildProcess()
{
    kill(1);
}

void ChildProcess::write(std::string_view bytes)
{
    DWORD written = 0;
    while (!bytes.empty() &&
           WriteFile(input_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
        bytes.remove_prefix(written);
    }
}

bool ChildProcess::waitForOutput(std::string_view text)
{
    return output_->waitFor([text](const Str &output) { return withoutReturns(output).contains(text); });
}

void ChildProcess::kill(unsigned exitCode)
{
    TerminateProcess(process_.get(), exitCode);
    WaitForSingleObject(process_.get(), INFINITE);
}

DWORD ChildProcess::exitCode()
{
    return waitForExitCode(process_);
}

bool ChildProcess::waitForEnd()
{
    return WaitForSingleObject(process_.get(), kLimitMilliseconds) == WAIT_OBJECT_0 &&
           output_->waitForEnd() && errors_->waitForEnd();
}

Str ChildProcess::output()
{
    output_->waitForEnd();
    return withoutReturns(output_->text());
}

IdleProcess::IdleProcess()
{
    STARTUPINFOW startup = {.cb = sizeof startup};
    // Never resumed, so it runs nothing.
    process_ =
        startProcess(Str::fromFormat("\"%s\"", programPath().c_str()), {}, CREATE_SUSPENDED, startup, pid_);
}

void IdleProcess::end()
{
    TerminateProcess(process_.get(), 0);
    WaitForSingleObject(process_.get(), INFINITE);
}

} // namespace velmox::testing
