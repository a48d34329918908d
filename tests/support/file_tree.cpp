#include "tests/support/file_tree.h"

#include "tests/support/scoped_folder.h"
#include "util/files/directory_listing.h"
#include "util/files/file_system.h"

#include <gtest/gtest.h>

namespace velmox::testing {

namespace {

void readInto(const Pathname &folder, const Str &prefix, FileTree &files)
{
    std::vector<DirectoryEntry> entries;
    EXPECT_TRUE(listDirectory(folder, entries)) << folder.toStr().c_str();
    for (const DirectoryEntry &entry : entries) {
        const Pathname path = folder.join(Pathname(entry.name));
        const Str name = Str::concat(prefix, Str::fromUtf16(entry.name));
        if (entry.isFolder) {
            readInto(path, Str::concat(name, "\\"), files);
        } else {
            files[name] = readWhole(path);
        }
    }
}

// The file's bytes with those that do not print as codes; a note for a file that is not there.
std::string shown(const FileTree &files, const Str &name)
{
    const auto found = files.find(name);
    if (found == files.end()) {
        return "no such file";
    }
    std::string text;
    for (const char byte : found->second) {
        const auto value = static_cast<unsigned char>(byte);
        const bool prints = byte == '\n' || (value >= 0x20 && value < 0x7F);
        text += prints ? std::string(1, byte) : Str::fromFormat("<%02X>", value).c_str();
    }
    return text;
}

} // namespace

void writeTree(const Pathname &root, const FileTree &files)
{
    for (const auto &[name, bytes] : files) {
        const Pathname path = root.join(name);
        ASSERT_TRUE(makeDirs(path.dirname(), true)) << path.toStr().c_str();
        writeWhole(path, bytes);
    }
}

FileTree readTree(const Pathname &root)
{
    FileTree files;
    readInto(root, "", files);
    return files;
}

void expectTree(const FileTree &actual, const FileTree &expected)
{
    FileTree names = actual;
    names.insert(expected.begin(), expected.end());
    for (const auto &[name, bytes] : names) {
        EXPECT_EQ(shown(actual, name), shown(expected, name)) << name.c_str();
    }
}

} // namespace velmox::testing
