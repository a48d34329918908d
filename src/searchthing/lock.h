#pragma once

#include "util/text/pathname.h"

namespace velmox {

// Lock files exclude one process from what another works on, also on another host that sees the same folder.
// The path is that of the file to guard; the lock stands next to it under the name with ".lock" behind. A
// lock stays until it is released, whatever becomes of its owner. It names the owner's process and host.
// Failures leave the reason in the last error.

/// What came of one attempt to take a lock.
enum class LockTry
{
    Taken = 0,
    Exists = 1,
    Failed = -1, ///< also for a name of more than 259 units
    AccessDenied = -2,
};

/// What came of waiting for one.
enum class LockWait
{
    Taken = 0,
    TimedOut = 1,
    Failed = -1,
};

/// What came of giving one back.
enum class LockRelease
{
    Done = 0, ///< or there was none
    NotEnoughMemory = 1,
    Failed = -1,
};

/// Whether somebody holds it, as far as can be told.
enum class LockState
{
    Exists = 1,
    Absent = 0,
    Unknown = -1,
};

/// Never waits. Who takes the lock is to release it, in this process or another.
LockTry lockFileTry(const Pathname &path);
/// Tries every 10 ms, once at least, until the lock is taken or the seconds have passed. A denied access
/// counts as held: a lock that is being deleted looks like that.
LockWait lockFileWait(const Pathname &path, int seconds);
LockRelease lockFileRelease(const Pathname &path);
LockState lockFileExists(const Pathname &path);

/// Whether locks can be made in a folder, tried out with a file that is removed again: 0 yes, 2 for an empty
/// name, 7 when the file cannot be created, 9 when it cannot be locked.
int lockFileCanCreateIn(const Pathname &folder);

} // namespace velmox
