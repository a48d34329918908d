#include "pipeline/input/driver/driver_reader.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/shared_state.h"

#include <algorithm>
#include <new>
#include <psapi.h>

namespace velmox {

namespace {

// The name in messages and traces, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::MonitorWorker";

// In bytes. A driver whose next record does not fit at the ceiling either would never give it: that ends the
// worker, and with it the program.
constexpr DWORD kBufferGrowth = 4096;
constexpr DWORD kBufferCeiling = 65536;
// 500 MiB.
constexpr SIZE_T kWorkingSetLimit = 524288000;
// Also how long a stop can take to be seen.
constexpr DWORD kIdleMilliseconds = 500;
constexpr std::int32_t kReadsPerReport = 1000;

} // namespace

void DriverReader::run()
{
    do {
        if (pass() == Next::CountOrSleep && !countOrSleep()) {
            break;
        }
    } while (!stop_.isSet());
    // The program ends with the worker: what was read before an error is to be reported until then.
    if (!stop_.isSet()) {
        queue_.waitUntilTaken(kIdleMilliseconds);
    }
}

DriverReader::Next DriverReader::pass()
{
    if (!buffer_.data && !allocate()) {
        return Next::CountOrSleep;
    }
    trace::monitor(trace::Message::ReadBegins, kFunction, size_);
    if (!device_.read(buffer_.data.get(), size_, buffer_.bytes)) {
        const DWORD error = GetLastError();
        buffer_.bytes = 0;
        if (error == ERROR_INSUFFICIENT_BUFFER) {
            return growBuffer(error);
        }
        // Not the end: the next pass tries again after the idle sleep.
        trace::monitor(trace::Message::ReadFailed, kFunction, error);
    }
    if (buffer_.bytes == 0) {
        trace::monitor(trace::Message::NothingRead, kFunction);
        return Next::CountOrSleep;
    }
    trace::monitor(trace::Message::ReadEnds, kFunction, buffer_.bytes);
    return handOver();
}

bool DriverReader::allocate()
{
    buffer_.bytes = 0;
    buffer_.data.reset(new (std::nothrow) unsigned char[size_]);
    if (!buffer_.data) {
        result_ = E_OUTOFMEMORY;
        trace::monitor(trace::Message::NoReadBuffer, kFunction);
    }
    return buffer_.data != nullptr;
}

DriverReader::Next DriverReader::growBuffer(DWORD error)
{
    buffer_.data.reset();
    // Nothing is put for as long as the reads fail: what waits must not wait with them.
    queue_.wakeTaker();
    if (size_ < kBufferCeiling) {
        // It never shrinks: a driver that has sent one such record sends more.
        size_ += kBufferGrowth;
        trace::monitor(trace::Message::BufferGrows, kFunction, size_);
        return Next::ReadAtOnce;
    }
    trace::monitor(trace::Message::BufferAtCeiling, kFunction, size_);
    result_ = E_UNEXPECTED;
    trace::monitor(trace::Message::ReadFailed, kFunction, error);
    return Next::CountOrSleep;
}

DriverReader::Next DriverReader::handOver()
{
    // Counted by the whole buffer, not by what was read: that is what it takes.
    if (room_ < size_ && !hasRoom()) {
        if (FAILED(result_)) {
            return Next::CountOrSleep;
        }
        trace::monitor(trace::Message::MemoryLimit, kFunction);
        buffer_.bytes = 0;
        ++registry_reads_dropped;
        // Only the taker frees memory.
        queue_.wakeTaker();
        return Next::ReadAtOnce;
    }
    room_ -= std::min<SIZE_T>(room_, size_);
    post();
    return Next::CountOrSleep;
}

// Asks for the working set, which takes as long as many reads under Wine: asked after each read it left
// three quarters of their rate. What is queued until the next time can use a quarter of what is left to the
// limit: the main thread may take the rest meanwhile.
bool DriverReader::hasRoom()
{
    PROCESS_MEMORY_COUNTERS memory = {};
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory)) {
        const DWORD error = GetLastError();
        result_ = HRESULT_FROM_WIN32(error);
        return false;
    }
    if (memory.WorkingSetSize >= kWorkingSetLimit) {
        return false;
    }
    room_ = (kWorkingSetLimit - memory.WorkingSetSize) / 4;
    return true;
}

void DriverReader::post()
{
    if (!queue_.put(buffer_)) {
        const DWORD error = GetLastError();
        trace::monitor(trace::Message::QueueRefuses, kFunction, error);
        result_ = HRESULT_FROM_WIN32(error);
    }
}

// False when the loop is to end. The number of bytes still tells of the last read here: to hand a buffer
// over takes its memory and leaves the number.
bool DriverReader::countOrSleep()
{
    if (stop_.isSet()) {
        trace::monitor(trace::Message::StopSeen, kFunction);
        return false;
    }
    if (FAILED(result_)) {
        return false;
    }
    if (buffer_.bytes > 0) {
        countRead();
    } else {
        trace::monitor(trace::Message::Idle, kFunction);
        queue_.wakeTaker();
        Sleep(kIdleMilliseconds);
    }
    return true;
}

void DriverReader::countRead() const
{
    if (++registry_evt_total % kReadsPerReport == 0) {
        monitorLog.debug("%s: registry_evt_total=%d registry_evt_accepted=%d", kFunction,
                         registry_evt_total.load(), registry_evt_accepted.load());
    }
}

} // namespace velmox
