#include "tests/support/scoped_folder.h"

#include "util/files/file_star.h"
#include "util/files/file_system.h"

#include <gtest/gtest.h>

namespace velmox::testing {

namespace {

std::vector<DirectoryEntry> entriesOf(const Pathname &folder)
{
    std::vector<DirectoryEntry> entries;
    listDirectory(folder, entries);
    return entries;
}

void removeTree(const Pathname &folder)
{
    for (const DirectoryEntry &entry : entriesOf(folder)) {
        const Pathname path = folder.join(Pathname(entry.name));
        SetFileAttributesW(asWide(path), FILE_ATTRIBUTE_NORMAL);
        if (entry.isFolder) {
            removeTree(path);
        } else {
            DeleteFileW(asWide(path));
        }
    }
    RemoveDirectoryW(asWide(folder));
}

} // namespace

ScopedFolder::ScopedFolder()
{
    static unsigned number = 0;
    wchar_t temp[MAX_PATH + 1];
    EXPECT_NE(GetTempPathW(MAX_PATH + 1, temp), 0u);
    path_ = Pathname(asUtf16(temp));
    // A blank and an accent, which no path may trip over.
    path_.append(Str::fromFormat("velmox t\u00E9st-%lu-%u", GetCurrentProcessId(), ++number));
    removeTree(path_);
    EXPECT_TRUE(CreateDirectoryW(asWide(path_), nullptr));
}

ScopedFolder::~ScopedFolder()
{
    removeTree(path_);
}

std::size_t ScopedFolder::count() const
{
    return entriesOf(path_).size();
}

void writeWhole(const Pathname &path, std::string_view content)
{
    FileStar file = openFile(path, "wb");
    ASSERT_TRUE(file.isOpen()) << path.toStr().c_str();
    ASSERT_EQ(file.write(content.data(), content.size()), static_cast<std::ptrdiff_t>(content.size()));
    ASSERT_TRUE(file.close());
}

Str readWhole(const Pathname &path)
{
    FileStar file = openFile(path, "rb");
    if (!file.isOpen()) {
        return "<unreadable>";
    }
    Str content;
    char piece[4096];
    for (std::ptrdiff_t count = 0; (count = file.read(piece, sizeof piece)) > 0;) {
        content.append(piece, static_cast<std::size_t>(count));
    }
    return content;
}

FileHandle lockOpen(const Pathname &path)
{
    return FileHandle(
        CreateFileW(asWide(path), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
}

} // namespace velmox::testing
