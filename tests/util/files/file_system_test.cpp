#include "util/files/file_system.h"

namespace velmox {
namespace {

TEST(FileSystem, TellsMovesAndRemovesFiles)
{
    const ScopedFolder folder;
    writeWhole(folder / "a", "12345");
    writeWhole(folder / "b", "old");
    EXPECT_EQ(pathKind(folder / "a"), PathKind::File);
    EXPECT_EQ(pathKind(folder.path()), PathKind::Folder);
    EXPECT_EQ(pathKind(folder / "absent"), PathKind::Nothing);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u);
    std::uint64_t size = 0;
    EXPECT_TRUE(fileSize(folder / "a", size));
    EXPECT_EQ(size, 5u);
    EXPECT_FALSE(fileSize(folder / "absent", size));
    EXPECT_TRUE(moveFile(folder / "a", folder / "b"));
    EXPECT_EQ(readWhole(folder / "b"), "12345");
    EXPECT_TRUE(removeFile(folder / "b"));
    EXPECT_FALSE(removeFile(folder / "b"));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND + 0u);
}

TEST(FileSystem, MakesFoldersWithTheirParents)
{
    const ScopedFolder folder;
    writeWhole(folder / "file", "");
    const std::tuple<Pathname, bool, DWORD> cases[] = {{folder / "a\\b\\c", true, 0},
                                                       {folder / "a\\b\\c", true, 0},
                                                       {folder / "d/e//f\\\\", true, 0},
                                                       {u"C:", true, 0},
                                                       {u"C:\\", true, 0},
                                                       {u"\\", true, 0},
                                                       {u"", true, 0},
                                                       {folder / "file", false, ERROR_ALREADY_EXISTS},
                                                       {folder / "file\\x", false, ERROR_ALREADY_EXISTS},
                                                       {folder / "bad<>name\\x", false, ERROR_INVALID_NAME}};
    for (const auto &[path, made, error] : cases) {
        EXPECT_EQ(makeDirs(path, true), made) << path.toStr().c_str();
        EXPECT_TRUE(made || GetLastError() == error) << path.toStr().c_str() << ": " << GetLastError();
    }
    EXPECT_EQ(pathKind(folder / "a\\b\\c"), PathKind::Folder);
    EXPECT_EQ(pathKind(folder / "d\\e\\f"), PathKind::Folder);
    EXPECT_FALSE(makeDir(folder / "absent\\x", false));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND + 0u);
}

// Another process makes the folder between the look and the making: the look is what fails here.
TEST(FileSystem, LetsRacersForAFolderBothWin)
{
    const ScopedFolder folder;
    for (const DWORD error : {ERROR_ALREADY_EXISTS, ERROR_FILE_EXISTS, ERROR_ACCESS_DENIED}) {
        const FailingCall notSeen("GetFileAttributesW", -1, ERROR_FILE_NOT_FOUND);
        const FailingCall parentSeen("CreateDirectoryW", FALSE, error);
        EXPECT_EQ(makeDirs(folder.path(), true), error != ERROR_ACCESS_DENIED);
        EXPECT_EQ(GetLastError(), error);
    }
}

TEST(PathnameSystem, AsksTheSystem)
{
    const ScopedFolder folder;
    writeWhole(folder / "MixedCaseName.txt", "");
    Pathname full;
    EXPECT_TRUE((folder / "x\\..\\.\\y").toFull(full));
    EXPECT_EQ(full, (folder / "y"));
    Pathname relative(u"some\\name");
    relative.absolute();
    EXPECT_TRUE(relative.isAbsolute());
    Pathname stored;
    ASSERT_TRUE(folder.path().trueCase(stored));
    const Pathname base(stored);
    EXPECT_TRUE(base.join("mixedcasename.TXT").trueCase(stored));
    EXPECT_EQ(stored, base.join("MixedCaseName.txt"));
    EXPECT_FALSE((folder / "absent").trueCase(stored));
    wchar_t shortName[MAX_PATH];
    ASSERT_NE(GetShortPathNameW(asWide(stored), shortName, MAX_PATH), 0u);
    EXPECT_FALSE(Pathname(asUtf16(shortName)).trueCase(stored)) << "differs by more than case";
}

} // namespace
} // namespace velmox
