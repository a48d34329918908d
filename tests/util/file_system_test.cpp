#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace velmox {
namespace {

using testing::ChildTest;
using testing::ScopedFolder;
using testing::writeWhole;

TEST(FileSystemTest, TellsKindsAndSizes)
{
    const ScopedFolder folder;
    writeWhole(folder / "file", "12345");
    EXPECT_EQ(pathKind(folder / "file"), PathKind::File);
    EXPECT_EQ(pathKind(folder.path()), PathKind::Folder);
    EXPECT_EQ(pathKind(folder / "absent"), PathKind::Nothing);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u);
    std::uint64_t size = 0;
    EXPECT_TRUE(fileSize(folder / "file", size));
    EXPECT_EQ(size, 5u);
    EXPECT_FALSE(fileSize(folder / "absent", size));
}

TEST(FileSystemTest, MovesAndRemoves)
{
    const ScopedFolder folder;
    writeWhole(folder / "a", "new");
    writeWhole(folder / "b", "old");
    EXPECT_TRUE(moveFile(folder / "a", folder / "b"));
    EXPECT_EQ(testing::readWhole(folder / "b"), "new");
    EXPECT_TRUE(removeFile(folder / "b"));
    EXPECT_FALSE(removeFile(folder / "b"));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u);
}

TEST(FileSystemTest, MakesFoldersWithTheirParents)
{
    const ScopedFolder folder;
    const struct
    {
        Pathname path;
        bool made;
    } cases[] = {
        {folder / "a\\b\\c", true},       {folder / "a\\b\\c", true},  {folder / "d/e//f\\\\", true},
        {Pathname(u"C:"), true},          {Pathname(u"C:\\"), true},   {Pathname(u"\\"), true},
        {folder / "file", false},         {folder / "file\\x", false}, {Pathname(), true},
        {folder / "bad<>name\\x", false},
    };
    writeWhole(folder / "file", "");
    for (const auto &c : cases) {
        EXPECT_EQ(makeDirs(c.path, true), c.made) << c.path.toStr().c_str();
    }
    EXPECT_EQ(pathKind(folder / "a\\b\\c"), PathKind::Folder);
    EXPECT_EQ(pathKind(folder / "d\\e\\f"), PathKind::Folder);
    EXPECT_FALSE(makeDirs(folder / "file", false));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS + 0u);
    EXPECT_FALSE(makeDir(folder / "absent\\x", false));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND + 0u);
}

TEST(FileSystemTest, TellsWhyTheSystemRefused)
{
    const ScopedFolder folder;
    writeWhole(folder / "file", "12345");
    const testing::FailingCall refused("DeleteFileW", FALSE, ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(removeFile(folder / "file"));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION + 0u);
    EXPECT_EQ(pathKind(folder / "file"), PathKind::File);
    EXPECT_TRUE(removeFile(folder / "file"));
    EXPECT_EQ(refused.failed(), 1);
}

constexpr int kRounds = 60;

void makeManyFolders(const Pathname &root)
{
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(makeDirs(root.join(Str::fromFormat("%d\\a\\b\\c", round)), round % 2 == 0))
            << GetLastError();
    }
}

TEST(FileSystemChild, DISABLED_MakesManyFolders)
{
    makeManyFolders(ChildTest::argument());
}

TEST(FileSystemTest, LetsRacersForFoldersAllWin)
{
    const ScopedFolder folder;
    ChildTest child("FileSystemChild.DISABLED_MakesManyFolders", folder.path());
    std::vector<std::thread> racers;
    for (int i = 0; i < 3; ++i) {
        racers.emplace_back(makeManyFolders, folder.path());
    }
    for (std::thread &racer : racers) {
        racer.join();
    }
    EXPECT_TRUE(child.succeeds());
    EXPECT_EQ(folder.count(), static_cast<unsigned>(kRounds));
}

TEST(PathnameSystemTest, AsksTheSystem)
{
    const ScopedFolder folder;
    writeWhole(folder / "MixedCaseName.txt", "");
    Pathname full;
    EXPECT_TRUE((folder / "x\\..\\.\\y").toFull(full));
    EXPECT_EQ(full, (folder / "y"));
    Pathname relative(u"some\\name");
    relative.absolute();
    EXPECT_TRUE(relative.isAbsolute());
    Pathname tooLong(Pathname(u"C:\\").concat(Str(300, 'x')));
    const Pathname before(tooLong);
    EXPECT_FALSE(tooLong.toFull(full));
    tooLong.absolute();
    EXPECT_EQ(tooLong, before);

    Pathname base;
    ASSERT_TRUE(folder.path().trueCase(base));
    Pathname stored;
    EXPECT_TRUE(base.join("mixedcasename.TXT").trueCase(stored));
    EXPECT_EQ(stored, base.join("MixedCaseName.txt"));
    EXPECT_FALSE((folder / "absent").trueCase(stored));
}

} // namespace
} // namespace velmox
