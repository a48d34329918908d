#include "util/files/file_system.h"

#include "util/files/file_permissions.h"
#include "util/system/owned_handle.h"

#include <algorithm>

namespace velmox {

namespace {

/// Where the part of the path begins that names folders: behind the drive and one backslash.
std::size_t rootLength(const Pathname &path)
{
    const std::size_t drive = driveLength(path.view());
    return drive + (path.size() > drive && path[drive] == Pathname::kSeparator ? 1 : 0);
}

/// With slashes of both kinds, as settings have them; `Pathname::dirname` knows only the backslash.
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

struct SearchHandleTraits
{
    using Type = HANDLE;
    static Type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(Type handle) { FindClose(handle); }
};

using SearchHandle = OwnedHandle<SearchHandleTraits>;

DirectoryEntry entryOf(const WIN32_FIND_DATAW &found)
{
    DirectoryEntry entry;
    entry.name = WideStr(asUtf16(found.cFileName));
    entry.isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    entry.size = std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
    entry.modtime = timevalOf(found.ftLastWriteTime);
    return entry;
}

bool isSelfOrParent(const WideStr &name)
{
    return name.view() == u"." || name.view() == u"..";
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
    // A root cannot be made: Windows denies access to it rather than tell that it exists.
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
    // Another process may have made it since it was looked for. A file of that name is no folder, though.
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

bool listDirectory(const Pathname &directory, std::vector<DirectoryEntry> &out)
{
    out.clear();
    WIN32_FIND_DATAW found;
    const SearchHandle search(FindFirstFileW(asWide(directory.join("*")), &found));
    if (!search.isValid()) {
        return false;
    }
    do {
        DirectoryEntry entry = entryOf(found);
        if (!isSelfOrParent(entry.name)) {
            out.push_back(std::move(entry));
        }
    } while (FindNextFileW(search.get(), &found));
    const DWORD error = GetLastError();
    // File systems list as they like, sorted or in the order of creation; whoever reads must find the same
    // each time.
    std::sort(out.begin(), out.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
    SetLastError(error);
    return error == ERROR_NO_MORE_FILES;
}

bool findEntry(const Pathname &path, DirectoryEntry &out)
{
    WIN32_FIND_DATAW found;
    // By a search, because that gives the name as it is stored; asking for attributes does not.
    const SearchHandle search(FindFirstFileW(asWide(path), &found));
    if (!search.isValid()) {
        return false;
    }
    out = entryOf(found);
    return true;
}

} // namespace velmox
