#include "conf/root/sentinel_scope.h"

#include "conf/ground/conf_exceptions.h"
#include "conf/ground/conf_lock.h"
#include "conf/root/conf_settings.h"
#include "searchthing/lock.h"
#include "searchthing/osfile.h"
#include "util/files/file_star.h"
#include "util/log/logger.h"
#include "util/system/windows_api.h"
#include "util/time/timeval.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace velmox {

namespace {

Logger log("SentinelScope");

/// The sentinels that this thread holds; a scope inside another of the same root has nothing to do.
constinit thread_local ThreadList<Pathname> held;

/// Rounded up: a short wait is not to become none.
int wholeSeconds(std::uint64_t milliseconds)
{
    constexpr std::uint64_t kLongest = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(milliseconds / 1000 + (milliseconds % 1000 != 0), kLongest));
}

void lock(const BundlesSetup &setup, const Pathname &sentinel, std::uint64_t timeoutMs)
{
    const LockWait result = lockFileWait(sentinel, wholeSeconds(timeoutMs));
    const unsigned error = GetLastError();
    if (result != LockWait::Taken) {
        throw ConfPathException(Str::fromErrorFormat(error,
                                                     "Failed to lock %s with code %d, possible reason: %m",
                                                     setup.text(sentinel).c_str(), static_cast<int>(result)));
    }
}

/// Adds a line by which people can see which host wrote when.
void note(const Pathname &sentinel, const Str &purpose)
{
    Str line =
        Str::fromFormat("%s %s: %s", Timeval::now().toStr().c_str(), ownerText().c_str(), purpose.c_str());
    // The owner's text has process and host on a line each.
    line.replaceAll("\n", " ");
    line << '\n';
    FileStar file = openFile(sentinel, "a");
    if (!file.isOpen() || file.write(line.data(), line.size()) < 0 || !file.flush()) {
        log.warn("Cannot note a write in %s: %m", sentinel.toStr().c_str());
    }
}

} // namespace

// By way of the empty scope, so that the destructor takes the lock off also when what follows it finds no
// memory.
SentinelScope::SentinelScope(const BundlesSetup &setup, const ConfSettings &settings, const Str &purpose)
    : SentinelScope()
{
    if (!settings.isSharedStorageMode()) {
        return;
    }
    Pathname sentinel = setup.sentinelFile();
    // The outer scope keeps it; this one must not let go of it.
    if (held.contains(sentinel)) {
        return;
    }
    lock(setup, sentinel, settings.lockTimeoutMs());
    locked_ = std::move(sentinel);
    held.add(locked_);
    if (settings.lockLogging()) {
        note(locked_, purpose);
    }
}

SentinelScope::~SentinelScope()
{
    if (locked_.empty()) {
        return;
    }
    // First, so that the thread never takes the file for locked when it is not. Where there was no memory for
    // it, it is not in the list.
    if (held.contains(locked_)) {
        held.remove(locked_);
    }
    if (lockFileRelease(locked_) != LockRelease::Done) {
        log.warn("Cannot release the lock of %s: %m", locked_.toStr().c_str());
    }
}

} // namespace velmox
