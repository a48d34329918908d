#include "util/files/file_replace.h"

#include "util/files/file_system.h"
#include "util/system/last_error_keeper.h"
#include "util/system/random_hex.h"

#include <algorithm>

namespace velmox {

namespace {

/// Others may have the file open in whatever way: it can be read all the same.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kBlockLength = 1024;

FileHandle openExisting(const Pathname &path, DWORD access)
{
    return FileHandle(
        CreateFileW(asWide(path), access, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool copyBlocks(const FileHandle &source, FileDescriptor &target)
{
    char block[kBlockLength];
    for (;;) {
        DWORD count = 0;
        if (!ReadFile(source.get(), block, sizeof block, &count, nullptr)) {
            return false;
        }
        // A read that succeeds with nothing is the end of the file.
        if (count == 0) {
            return true;
        }
        if (target.write(block, count) != static_cast<std::ptrdiff_t>(count)) {
            return false;
        }
    }
}

/// What Windows tells two files apart by (BY_HANDLE_FILE_INFORMATION): two names may lead to one file, by
/// links or because they differ in case.
bool isSameFile(const BY_HANDLE_FILE_INFORMATION &a, const BY_HANDLE_FILE_INFORMATION &b)
{
    return a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh &&
           a.nFileIndexLow == b.nFileIndexLow;
}

enum class Target
{
    Absent,
    Other, ///< another file than the source
    Same,
    Unknown, ///< the last error says why
};

Target examineTarget(const FileHandle &source, const Pathname &to)
{
    // Reading attributes alone is granted also where somebody has the file open and shares nothing.
    const FileHandle target = openExisting(to, FILE_READ_ATTRIBUTES);
    if (!target.isValid()) {
        const DWORD error = GetLastError();
        // A missing folder is for the creation to tell, which comes next.
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? Target::Absent
                                                                              : Target::Unknown;
    }
    BY_HANDLE_FILE_INFORMATION sourceInformation;
    BY_HANDLE_FILE_INFORMATION targetInformation;
    if (!GetFileInformationByHandle(source.get(), &sourceInformation) ||
        !GetFileInformationByHandle(target.get(), &targetInformation)) {
        return Target::Unknown;
    }
    return isSameFile(sourceInformation, targetInformation) ? Target::Same : Target::Other;
}

bool copyToNewFile(const FileHandle &source, const Pathname &to, FilePermissions permissions)
{
    FileDescriptor target;
    if (!target.openWrite(to, permissions)) {
        return false;
    }
    if (copyBlocks(source, target)) {
        return true;
    }
    // A file that is open cannot be removed.
    const LastErrorKeeper keeper;
    target.close();
    removeFile(to);
    return false;
}

/// What passes by itself, mostly: a scanner or an indexer has the file open for a moment, the network stalls,
/// the machine is short of something.
constexpr unsigned kTransientErrors[] = {
    ERROR_TOO_MANY_OPEN_FILES, ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY,
    ERROR_OUTOFMEMORY,         ERROR_NOT_READY,     ERROR_WRITE_FAULT,
    ERROR_READ_FAULT,          ERROR_GEN_FAILURE,   ERROR_SHARING_VIOLATION,
    ERROR_LOCK_VIOLATION,      ERROR_NETWORK_BUSY,  ERROR_ADAP_HDW_ERR,
    ERROR_BAD_NET_RESP,        ERROR_UNEXP_NET_ERR, ERROR_BAD_REM_ADAP,
    ERROR_SHARING_PAUSED,      ERROR_REQ_NOT_ACCEP, ERROR_OUT_OF_STRUCTURES,
    ERROR_NET_WRITE_FAULT,     ERROR_NO_PROC_SLOTS, ERROR_NO_MORE_SEARCH_HANDLES,
};

bool isTransient(unsigned error)
{
    return std::ranges::find(kTransientErrors, error) != std::end(kTransientErrors);
}

constexpr int kNameAttempts = 5;
constexpr unsigned kRandomDigits = 8;

bool isOrdinaryFile(const Pathname &path)
{
    const PathKind kind = pathKind(path);
    if (kind == PathKind::Folder || kind == PathKind::Device) {
        // Looking at it succeeded, so that the last error has no reason yet.
        SetLastError(ERROR_ACCESS_DENIED);
    }
    return kind == PathKind::File;
}

/// Creates a file of a random name next to `neighbour`.
FileDescriptor makeTemporary(const Pathname &neighbour, Pathname &path)
{
    // In the same folder, and so on the same volume: only there is the renaming that follows one step.
    Pathname folder(neighbour);
    folder.absolute();
    folder.dirnameInPlace();
    FileDescriptor file;
    // openWrite takes only a name that is free; one that is not is left alone, and another is tried.
    for (int attempt = 0; attempt < kNameAttempts && !file.isOpen(); ++attempt) {
        Str name;
        if (!appendRandomHex(name, kRandomDigits)) {
            break;
        }
        path = folder.join(name).concat(".rename_tmp");
        file.openWrite(path, FilePermissions::PublicRead);
    }
    return file;
}

bool replaceAcrossVolumes(const Pathname &from, const Pathname &to)
{
    Pathname temporary;
    FileDescriptor file = makeTemporary(to, temporary);
    if (!file.isOpen()) {
        return false;
    }
    const bool copied = copyContent(from, file);
    // Before it stands under the name that others know: while it is open here, nobody else can open it to
    // write.
    file.close();
    if (copied && moveFile(temporary, to)) {
        return true;
    }
    const LastErrorKeeper keeper;
    removeFile(temporary);
    return false;
}

} // namespace

bool replaceFile(const Pathname &from, const Pathname &to)
{
    if (!isOrdinaryFile(from)) {
        return false;
    }
    if (moveFile(from, to)) {
        return true;
    }
    // Only this failure has a way around it; with any other a copy would fail as well, or go past somebody's
    // refusal.
    return GetLastError() == ERROR_NOT_SAME_DEVICE && replaceAcrossVolumes(from, to);
}

Str RetryResult::toStr() const
{
    Str text;
    text << operation << (succeeded ? " succeeded in " : " failed in ") << attempts
         << " attempt(s) made between " << firstTime.toStr() << " and " << lastTime.toStr();
    if (!succeeded) {
        text << " [status code: " << statusCode << "]";
    }
    return text;
}

bool renameWithRetries(const Pathname &from, RetryResult &result, const Pathname &to, unsigned attempts,
                       unsigned sleepMs)
{
    result = RetryResult();
    for (;;) {
        ++result.attempts;
        result.lastTime = Timeval::now();
        if (result.attempts == 1) {
            result.firstTime = result.lastTime;
        }
        result.succeeded = moveFile(from, to);
        if (result.succeeded) {
            result.statusCode = 0;
            return true;
        }
        result.statusCode = GetLastError();
        if (!isTransient(result.statusCode) || result.attempts >= attempts) {
            SetLastError(result.statusCode);
            return false;
        }
        Sleep(sleepMs);
    }
}

bool copyFileTo(const Pathname &from, const Pathname &to, FilePermissions permissions)
{
    const FileHandle source = openExisting(from, GENERIC_READ);
    if (!source.isValid()) {
        return false;
    }
    switch (examineTarget(source, to)) {
    case Target::Same:
        return true;
    case Target::Unknown:
        return false;
    case Target::Other:
        // Deleted, not overwritten: an existing file would keep its permissions.
        if (!removeFile(to)) {
            return false;
        }
        break;
    case Target::Absent:
        break;
    }
    return copyToNewFile(source, to, permissions);
}

bool copyContent(const Pathname &from, FileDescriptor &target)
{
    const FileHandle source = openExisting(from, GENERIC_READ);
    return source.isValid() && copyBlocks(source, target);
}

} // namespace velmox
