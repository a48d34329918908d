#include "util/files/directory_listing.h"

#include "util/system/owned_handle.h"
#include "util/time/file_time.h"

#include <algorithm>

namespace velmox {

namespace {

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
    std::sort(out.begin(), out.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
    SetLastError(error);
    return error == ERROR_NO_MORE_FILES;
}

bool findEntry(const Pathname &path, DirectoryEntry &out)
{
    WIN32_FIND_DATAW found;
    const SearchHandle search(FindFirstFileW(asWide(path), &found));
    if (!search.isValid()) {
        return false;
    }
    out = entryOf(found);
    return true;
}

} // namespace velmox
