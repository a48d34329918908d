#include "util/files/file_system.h"

#include "util/files/file_permissions.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

/// Where the part of the path begins that names folders: behind the drive and one backslash.
std::size_t rootLength(const Pathname &path)
{
    const std::size_t drive = driveLength(path.view());
    return drive + (path.size() > drive && path[drive] == Pathname::kSeparator ? 1 : 0);
}

Pathname parentOf(const Pathname &path)
{
    std::size_t end = path.size();
    const auto skipBack = [&](bool slashes) {
        while (end > 0 && isSlash(path[end - 1]) == slashes) {
            --end;
        }
    };
    skipBack(true);
    skipBack(false);
    skipBack(true);
    return path.substr(0, end);
}

bool isFolder(const Pathname &path)
{
    return pathKind(path) == PathKind::Folder;
}

} // namespace

PathKind pathKind(const Pathname &path)
{
    const DWORD attributes = GetFileAttributesW(asWide(path));
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return PathKind::Nothing;
    }
    if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) {
        return PathKind::Device;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::Folder : PathKind::File;
}

bool fileSize(const Pathname &path, std::uint64_t &size)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(asWide(path), GetFileExInfoStandard, &data)) {
        return false;
    }
    size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    return true;
}

bool makeDir(const Pathname &path, bool publicRead)
{
    FileSecurity security(publicRead ? FilePermissions::PublicRead : FilePermissions::Private);
    return security.isValid() && CreateDirectoryW(asWide(path), security.get());
}

bool makeDirs(const Pathname &path, bool publicRead)
{
    if (path.size() == rootLength(path) || isFolder(path)) {
        return true;
    }
    const Pathname parent = parentOf(path);
    if (!parent.empty() && !makeDirs(parent, publicRead)) {
        return false;
    }
    if (makeDir(path, publicRead)) {
        return true;
    }
    const DWORD error = GetLastError();
    const bool exists = error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS;
    if (exists && isFolder(path)) {
        return true;
    }
    SetLastError(error);
    return false;
}

bool removeFile(const Pathname &path)
{
    return DeleteFileW(asWide(path)) != FALSE;
}

bool moveFile(const Pathname &from, const Pathname &to)
{
    return MoveFileExW(asWide(from), asWide(to), MOVEFILE_REPLACE_EXISTING) != FALSE;
}

} // namespace velmox
