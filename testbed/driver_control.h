#pragma once

#include "testbed/driver/test_control.h"
#include "testbed/record_builder.h"
#include "util/system/owned_handle.h"

#include <chrono>
#include <functional>

namespace velmox::testbed {

/// What one read of the device gave: the bytes, or the error.
struct ReadResult
{
    DWORD error = ERROR_SUCCESS;
    Bytes bytes = {};
};

/// A test's hand on the running stand-in driver, beside the monitor that reads from it. driver_service.h
/// makes it run.
///
/// Failures throw std::system_error. Any number may be open, in any process; they all speak to one queue.
class TestDriver
{
public:
    TestDriver();

    static bool isPresent();

    /// Queues whole records behind those that wait. With a `repeat` they are handed out that many times over.
    void push(const Bytes &records, std::uint32_t repeat = 1, std::uint64_t timestampStep = 0);

    /// The same for records that no filter block can ask for, such as an unknown class.
    void pushUnfiltered(const Bytes &records);

    /// The next `count` reads end with this NTSTATUS and take nothing; 0 makes them answer with zero bytes.
    void failReads(std::uint32_t status, std::uint32_t count = 1);

    /// Serves the next `count` reads as usual, before the faults that are scripted after it.
    void passReads(std::uint32_t count);
    void failSetFilter(std::uint32_t status, std::uint32_t count = 1);

    /// While closed, reads find nothing.
    void closeGate() { setGate(true); }
    void openGate() { setGate(false); }

    void startLive(std::uint32_t writerPid);

    void reset();
    VelmoxTestState state() const;

    /// Whether the state came to meet the condition in time.
    bool waitFor(const std::function<bool(const VelmoxTestState &)> &condition,
                 std::chrono::milliseconds limit = std::chrono::seconds(30)) const;

    /// The monitor's own two calls.
    ReadResult read(std::uint32_t capacity) const;
    DWORD setFilter(const VelmoxFilterBlock &block);

private:
    void control(DWORD code, const void *input, std::size_t size, const char *what);
    void pushBatch(const VelmoxTestPush &head, const Bytes &records);
    void addFault(const VelmoxTestFault &fault);
    void setGate(bool closed);

    FileHandle device_;
};

/// The block that lets everything through that a block can.
VelmoxFilterBlock everything();

} // namespace velmox::testbed
