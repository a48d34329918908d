#pragma once

#include "util/system/windows_api.h"

#include <utility>

namespace velmox {

/// Owner of one operating-system handle. `Traits` names the handle type, its invalid value and the closing
/// call.
///
/// Moving hands the ownership on; there is no copying, nor a handle shared by two owners. Closing keeps the
/// thread's last error as it was, so that an owner on its way out hides no failure.
template <class Traits>
class OwnedHandle
{
public:
    using Type = typename Traits::Type;

    OwnedHandle() = default;
    explicit OwnedHandle(Type handle) : handle_(handle) {}
    OwnedHandle(OwnedHandle &&other) noexcept : handle_(other.release()) {}
    OwnedHandle &operator=(OwnedHandle &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~OwnedHandle() { reset(); }

    bool isValid() const { return handle_ != Traits::invalid(); }
    Type get() const { return handle_; }

    /// Gives the handle to the caller, who closes it.
    Type release() { return std::exchange(handle_, Traits::invalid()); }

    void reset(Type handle = Traits::invalid())
    {
        // The new handle is in its place before the old one is closed, so that whatever closing sets off
        // meets a whole owner.
        const Type old = std::exchange(handle_, handle);
        if (old != Traits::invalid()) {
            const DWORD error = GetLastError();
            Traits::close(old);
            SetLastError(error);
        }
    }

private:
    Type handle_ = Traits::invalid();
};

/// Handles whose invalid value is null: events, threads, processes. Which calls give null for a failure and
/// which INVALID_HANDLE_VALUE, Windows decides call by call; hence the two kinds.
struct KernelHandleTraits
{
    using Type = HANDLE;
    static Type invalid() { return nullptr; }
    static void close(Type handle) { CloseHandle(handle); }
};

/// Handles whose invalid value is INVALID_HANDLE_VALUE: files, devices and process snapshots.
struct FileHandleTraits
{
    using Type = HANDLE;
    static Type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(Type handle) { CloseHandle(handle); }
};

/// Memory of LocalAlloc, in which calls of Windows such as FormatMessageW leave their texts.
struct LocalMemoryTraits
{
    using Type = void *;
    static Type invalid() { return nullptr; }
    static void close(Type memory) { LocalFree(memory); }
};

using KernelHandle = OwnedHandle<KernelHandleTraits>;
using FileHandle = OwnedHandle<FileHandleTraits>;
using LocalMemory = OwnedHandle<LocalMemoryTraits>;

} // namespace velmox
