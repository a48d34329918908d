#include "tests/e2e/child_process.h"

#include <map>
#include <stdexcept>

namespace velmox::e2e {

namespace {

constexpr std::chrono::seconds kLimit(20);

struct Pipe
{
    KernelHandle readEnd;
    KernelHandle writeEnd;
};

Pipe makePipe()
{
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
        throw std::runtime_error("CreatePipe failed");
    }
    return {KernelHandle(readEnd), KernelHandle(writeEnd)};
}

void makeInheritable(const KernelHandle &handle)
{
    SetHandleInformation(handle.get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
}

// The caller's environment with some rows replaced; a row that ends in its "=" takes the variable away.
WideStr environmentBlock(const StrVector &replacements)
{
    std::map<WideStr, WideStr> rows;
    const auto add = [&rows](const WideStr &row) {
        const std::size_t equals = row.find(u'=', 1);
        rows[row.substr(0, equals)] = row;
        if (equals + 1 == row.size()) {
            rows.erase(row.substr(0, equals));
        }
    };
    wchar_t *inherited = GetEnvironmentStringsW();
    for (const char16_t *row = asUtf16(inherited); *row != u'\0';
         row += std::u16string_view(row).size() + 1) {
        add(row);
    }
    FreeEnvironmentStringsW(inherited);
    for (const Str &row : replacements) {
        add(WideStr::fromUtf8(row));
    }
    WideStr block;
    for (const auto &[name, row] : rows) {
        block.append(row).push_back(u'\0');
    }
    block.push_back(u'\0');
    return block;
}

PROCESS_INFORMATION createProcess(const Str &commandLine, DWORD flags, STARTUPINFOW &startup,
                                  const StrVector &environment)
{
    WideStr command = WideStr::fromUtf8(commandLine);
    WideStr block = environmentBlock(environment);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, reinterpret_cast<wchar_t *>(command.data()), nullptr, nullptr, TRUE,
                        flags | CREATE_UNICODE_ENVIRONMENT, block.data(), nullptr, &startup, &process)) {
        throw std::runtime_error(
            Str::fromLastErrorFormat("CreateProcess of %s: %m", commandLine.c_str()).c_str());
    }
    return process;
}

} // namespace

PipeReader::PipeReader(KernelHandle pipe) : pipe_(std::move(pipe)), thread_([this] { collect(); }) {}

PipeReader::~PipeReader()
{
    thread_.join();
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

bool PipeReader::waitForEnd(std::chrono::seconds limit)
{
    std::unique_lock guard(lock_);
    return grown_.wait_for(guard, limit, [this] { return atEnd_; });
}

bool PipeReader::waitFor(const TextCondition &condition, std::chrono::seconds limit)
{
    std::unique_lock guard(lock_);
    grown_.wait_for(guard, limit, [&] { return atEnd_ || condition(text_); });
    return condition(text_);
}

Str PipeReader::text() const
{
    const std::lock_guard guard(lock_);
    return text_;
}

ChildProcess::ChildProcess(const Str &commandLine, const StrVector &environment, bool withInput)
{
    Pipe input = makePipe();
    Pipe output = makePipe();
    Pipe errors = makePipe();
    makeInheritable(input.readEnd);
    makeInheritable(output.writeEnd);
    makeInheritable(errors.writeEnd);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = withInput ? input.readEnd.get() : nullptr;
    startup.hStdOutput = output.writeEnd.get();
    startup.hStdError = errors.writeEnd.get();
    const PROCESS_INFORMATION process = createProcess(commandLine, 0, startup, environment);
    CloseHandle(process.hThread);
    process_.reset(process.hProcess);
    pid_ = process.dwProcessId;
    input_ = std::move(input.writeEnd);
    output_ = std::make_unique<PipeReader>(std::move(output.readEnd));
    errors_ = std::make_unique<PipeReader>(std::move(errors.readEnd));
}

ChildProcess::~ChildProcess()
{
    kill();
}

void ChildProcess::writeInput(std::string_view bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(input_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
            return;
        }
        bytes.remove_prefix(written);
    }
}

bool ChildProcess::waitForOutput(const TextCondition &condition) const
{
    return output_->waitFor(condition, kLimit);
}

bool ChildProcess::waitForExit(std::chrono::seconds limit)
{
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(limit).count();
    return WaitForSingleObject(process_.get(), static_cast<DWORD>(milliseconds)) == WAIT_OBJECT_0 &&
           output_->waitForEnd(limit) && errors_->waitForEnd(limit);
}

DWORD ChildProcess::exitCode() const
{
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

void ChildProcess::kill()
{
    closeInput();
    if (WaitForSingleObject(process_.get(), 0) != WAIT_OBJECT_0) {
        TerminateProcess(process_.get(), 255);
        WaitForSingleObject(process_.get(), INFINITE);
    }
}

IdleProcess::IdleProcess()
{
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    // Never resumed, so it runs nothing.
    const Str command = Str::fromFormat("\"%s\"", Str::fromUtf16(asUtf16(self)).c_str());
    const PROCESS_INFORMATION process = createProcess(command, CREATE_SUSPENDED, startup, {});
    CloseHandle(process.hThread);
    process_.reset(process.hProcess);
    pid_ = process.dwProcessId;
}

IdleProcess::~IdleProcess()
{
    end();
}

void IdleProcess::end()
{
    TerminateProcess(process_.get(), 0);
    WaitForSingleObject(process_.get(), INFINITE);
}

} // namespace velmox::e2e
