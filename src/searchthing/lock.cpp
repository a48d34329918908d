#include "searchthing/lock.h"

#include "searchthing/osfile.h"
#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"
#include "util/system/last_error_keeper.h"
#include "util/system/random_hex.h"

namespace velmox {

namespace {

// MAX_PATH counts the NUL as well. No prefix for long paths is added here, and what Windows says of a longer
// one can look as if nothing were there.
constexpr std::size_t kLongestName = MAX_PATH - 1;
constexpr DWORD kTryIntervalMs = 10;

// What cannot be created gives 8 plus the handle that came of it, and that is -1.
constexpr int kCanCreate = 0;
constexpr int kEmptyName = 2;
constexpr int kCannotCreate = 7;
constexpr int kCannotLock = 9;

/// Forms the name of the lock; false when it is too long.
bool lockNameOf(const Pathname &path, Pathname &name)
{
    name = path.concat(".lock");
    if (name.size() > kLongestName) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    return true;
}

bool isAbsence(DWORD error)
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

} // namespace

// The file itself is the lock, and its creation the one step that no two can both do. It is closed at once:
// a handle that is held would end with its process, and the lock is to outlive that.
LockTry lockFileTry(const Pathname &path)
{
    Pathname name;
    if (!lockNameOf(path, name)) {
        return LockTry::Failed;
    }
    if (createWithContent(name, ownerText())) {
        return LockTry::Taken;
    }
    switch (GetLastError()) {
    // Which of the two comes depends on the file system.
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        return LockTry::Exists;
    case ERROR_ACCESS_DENIED:
        return LockTry::AccessDenied;
    default:
        return LockTry::Failed;
    }
}

LockWait lockFileWait(const Pathname &path, int seconds)
{
    // Not the clock, which somebody may set meanwhile.
    const ULONGLONG start = GetTickCount64();
    const ULONGLONG limit = seconds > 0 ? static_cast<ULONGLONG>(seconds) * 1000 : 0;
    for (;;) {
        const LockTry result = lockFileTry(path);
        if (result == LockTry::Taken || result == LockTry::Failed) {
            return result == LockTry::Taken ? LockWait::Taken : LockWait::Failed;
        }
        if (GetTickCount64() - start >= limit) {
            return LockWait::TimedOut;
        }
        Sleep(kTryIntervalMs);
    }
}

LockRelease lockFileRelease(const Pathname &path)
{
    Pathname name;
    if (!lockNameOf(path, name)) {
        return LockRelease::Failed;
    }
    if (removeFile(name)) {
        return LockRelease::Done;
    }
    const DWORD error = GetLastError();
    if (isAbsence(error)) {
        return LockRelease::Done;
    }
    return error == ERROR_NOT_ENOUGH_MEMORY ? LockRelease::NotEnoughMemory : LockRelease::Failed;
}

LockState lockFileExists(const Pathname &path)
{
    Pathname name;
    if (!lockNameOf(path, name)) {
        return LockState::Unknown;
    }
    if (pathKind(name) != PathKind::Nothing) {
        return LockState::Exists;
    }
    return isAbsence(GetLastError()) ? LockState::Absent : LockState::Unknown;
}

int lockFileCanCreateIn(const Pathname &folder)
{
    if (folder.empty()) {
        return kEmptyName;
    }
    Str name("lock_test_");
    if (!appendRandomHex(name, 8)) {
        return kCannotCreate;
    }
    // Random digits, so that two who try out the same folder don't meet. The lock is tried on a file that is
    // there, as a guarded one would be.
    const Pathname probe = folder.join(name);
    FileDescriptor file;
    if (!file.openWrite(probe, FilePermissions::Private)) {
        return kCannotCreate;
    }
    file.close();
    const bool locked = lockFileTry(probe) == LockTry::Taken;
    const LastErrorKeeper keeper;
    if (locked) {
        lockFileRelease(probe);
    }
    removeFile(probe);
    return locked ? kCanCreate : kCannotLock;
}

} // namespace velmox
