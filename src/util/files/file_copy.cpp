#include "util/files/file_copy.h"

#include "util/files/file_system.h"
#include "util/system/last_error_keeper.h"

namespace velmox {

namespace {

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
        if (count == 0) {
            return true;
        }
        if (target.write(block, count) != static_cast<std::ptrdiff_t>(count)) {
            return false;
        }
    }
}

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
    const FileHandle target = openExisting(to, FILE_READ_ATTRIBUTES);
    if (!target.isValid()) {
        const DWORD error = GetLastError();
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
    const LastErrorKeeper keeper;
    target.close();
    removeFile(to);
    return false;
}

} // namespace

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
