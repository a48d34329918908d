#include "pipeline/input/driver_reader.h"

#include "pipeline/input/monitor_log.h"
#include "pipeline/input/trace.h"

#include <new>
#include <psapi.h>

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::MonitorWorker";

constexpr DWORD kBufferGrowth = 4096;
constexpr DWORD kBufferCeiling = 65536;
constexpr SIZE_T kWorkingSetLimit = 524288000;
constexpr DWORD kIdleMilliseconds = 500;
constexpr LONG kReadsPerReport = 1000;

constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFF);

HRESULT resultOf(DWORD error)
{
    return error == 0 ? 0 : static_cast<HRESULT>((error & 0xFFFF) | 0x80070000);
}

} // namespace

volatile LONG registry_evt_total = 0;
volatile LONG registry_evt_accepted = 0;

void DriverReader::run()
{
    do {
        if (pass() == Next::Settle && !settle()) {
            return;
        }
    } while (!stop_.isSet());
}

DriverReader::Next DriverReader::pass()
{
    if (!buffer_.data && !allocate()) {
        return Next::Settle;
    }
    trace::monitor(trace::Kind::Information, 64, kFunction, size_);
    if (!device_.read(buffer_.data.get(), size_, buffer_.bytes)) {
        const DWORD error = GetLastError();
        buffer_.bytes = 0;
        if (error == ERROR_INSUFFICIENT_BUFFER) {
            return growBuffer(error);
        }
        // Not the end: the next pass tries again after the idle sleep.
        trace::monitor(trace::Kind::Error, 67, kFunction, error);
    }
    if (buffer_.bytes == 0) {
        trace::monitor(trace::Kind::Information, 71, kFunction);
        return Next::Settle;
    }
    trace::monitor(trace::Kind::Information, 68, kFunction, buffer_.bytes);
    return handOver();
}

bool DriverReader::allocate()
{
    buffer_.bytes = 0;
    buffer_.data.reset(new (std::nothrow) unsigned char[size_]);
    if (!buffer_.data) {
        result_ = kOutOfMemory;
        trace::monitor(trace::Kind::Error, 63, kFunction);
    }
    return buffer_.data != nullptr;
}

DriverReader::Next DriverReader::growBuffer(const DWORD &error)
{
    buffer_.data.reset();
    if (size_ < kBufferCeiling) {
        size_ += kBufferGrowth;
        trace::monitor(trace::Kind::Information, 65, kFunction, size_);
        return Next::ReadAgain;
    }
    trace::monitor(trace::Kind::Error, 66, kFunction, size_);
    result_ = kUnexpected;
    trace::monitor(trace::Kind::Error, 67, kFunction, error);
    return Next::Settle;
}

DriverReader::Next DriverReader::handOver()
{
    PROCESS_MEMORY_COUNTERS memory = {};
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory)) {
        result_ = resultOf(GetLastError());
        return Next::Settle;
    }
    if (memory.WorkingSetSize >= kWorkingSetLimit) {
        trace::monitor(trace::Kind::Warning, 70, kFunction);
        buffer_.bytes = 0;
        return Next::ReadAgain;
    }
    post();
    return Next::Settle;
}

void DriverReader::post()
{
    if (!queue_.put(buffer_)) {
        const DWORD error = GetLastError();
        trace::monitor(trace::Kind::Error, 69, kFunction, error);
        result_ = resultOf(error);
    }
}

// False when the loop is to end.
bool DriverReader::settle()
{
    if (stop_.isSet()) {
        trace::monitor(trace::Kind::Information, 72, kFunction);
        return false;
    }
    if (result_ < 0) {
        return false;
    }
    if (buffer_.bytes > 0) {
        countRead();
    } else {
        trace::monitor(trace::Kind::Information, 73, kFunction);
        queue_.wakeTaker();
        Sleep(kIdleMilliseconds);
    }
    return true;
}

void DriverReader::countRead() const
{
    if (InterlockedIncrement(&registry_evt_total) % kReadsPerReport == 0) {
        monitorLog.debug("%s: registry_evt_total=%d registry_evt_accepted=%d", kFunction,
                         static_cast<int>(registry_evt_total), static_cast<int>(registry_evt_accepted));
    }
}

} // namespace velmox
