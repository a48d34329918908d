#include "testbed/driver_control.h"

#include <system_error>
#include <thread>

namespace velmox::testbed {

namespace {

FileHandle openDevice()
{
    return FileHandle(CreateFileW(L"\\\\.\\VelmoxTrace", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
}

void check(bool succeeded, const char *what)
{
    if (!succeeded)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

} // namespace

TestDriver::TestDriver() : device_(openDevice())
{
    check(device_.isValid(), "opening the test driver");
}

bool TestDriver::isPresent()
{
    return openDevice().isValid();
}

void TestDriver::control(DWORD code, const void *input, std::size_t size, const char *what)
{
    DWORD returned = 0;
    check(DeviceIoControl(device_.get(), code, const_cast<void *>(input), static_cast<DWORD>(size), nullptr,
                          0, &returned, nullptr),
          what);
}

void TestDriver::pushBatch(const VelmoxTestPush &head, const Bytes &records)
{
    const auto *first = reinterpret_cast<const unsigned char *>(&head);
    Bytes request(first, first + sizeof head);
    request.insert(request.end(), records.begin(), records.end());
    control(VELMOX_TEST_PUSH, request.data(), request.size(), "pushing records");
}

void TestDriver::push(const Bytes &records, std::uint32_t repeat, std::uint64_t timestampStep)
{
    pushBatch({.flags = 0, .repeat = repeat, .timestampStep = timestampStep}, records);
}

void TestDriver::pushUnfiltered(const Bytes &records)
{
    pushBatch({.flags = VELMOX_TEST_PUSH_UNFILTERED, .repeat = 1, .timestampStep = 0}, records);
}

void TestDriver::addFault(const VelmoxTestFault &fault)
{
    control(VELMOX_TEST_FAULT, &fault, sizeof fault, "scripting a fault");
}

void TestDriver::failReads(std::uint32_t status, std::uint32_t count)
{
    addFault({.target = VELMOX_TEST_FAULT_READ, .status = status, .count = count});
}

void TestDriver::passReads(std::uint32_t count)
{
    failReads(VELMOX_TEST_PASS, count);
}

void TestDriver::failSetFilter(std::uint32_t status, std::uint32_t count)
{
    addFault({.target = VELMOX_TEST_FAULT_FILTER, .status = status, .count = count});
}

void TestDriver::setGate(bool closed)
{
    const std::uint32_t request = closed;
    control(VELMOX_TEST_GATE, &request, sizeof request, "moving the gate");
}

void TestDriver::startLive(std::uint32_t writerPid)
{
    control(VELMOX_TEST_LIVE, &writerPid, sizeof writerPid, "starting live mode");
}

void TestDriver::reset()
{
    control(VELMOX_TEST_RESET, nullptr, 0, "resetting the test driver");
}

VelmoxTestState TestDriver::state() const
{
    VelmoxTestState state = {};
    DWORD returned = 0;
    check(DeviceIoControl(device_.get(), VELMOX_TEST_GET_STATE, nullptr, 0, &state, sizeof state, &returned,
                          nullptr),
          "reading the test driver's state");
    return state;
}

bool TestDriver::waitFor(const std::function<bool(const VelmoxTestState &)> &condition,
                         std::chrono::milliseconds limit) const
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition(state())) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

ReadResult TestDriver::read(std::uint32_t capacity) const
{
    ReadResult result;
    result.bytes.resize(capacity);
    DWORD returned = 0;
    if (!DeviceIoControl(device_.get(), VELMOX_IOCTL_READ_EVENTS, nullptr, 0, result.bytes.data(), capacity,
                         &returned, nullptr))
        result.error = GetLastError();
    result.bytes.resize(returned);
    return result;
}

DWORD TestDriver::setFilter(const VelmoxFilterBlock &block)
{
    VelmoxFilterBlock copy = block;
    DWORD returned = 0;
    if (DeviceIoControl(device_.get(), VELMOX_IOCTL_SET_FILTER, &copy, sizeof copy, nullptr, 0, &returned,
                        nullptr))
        return ERROR_SUCCESS;
    return GetLastError();
}

VelmoxFilterBlock everything()
{
    return {.events = 7, .status = 0x17, .ops = 127, .hives = 3};
}

} // namespace velmox::testbed
