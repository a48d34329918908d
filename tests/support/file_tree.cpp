#include "tests/support/file_tree.h"

#include "tests/support/scoped_folder.h"
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
    // As GoogleTest shows bytes that do not print as codes.
    const auto shown = [](const FileTree &files) {
        std::map<std::string, std::string> texts;
        for (const auto &[name, bytes] : files) {
            texts.emplace(name.view(), bytes.view());
        }
        return texts;
    };
    EXPECT_EQ(shown(actual), shown(expected));
}

} // namespace velmox::testing
