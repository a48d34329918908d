#include "util/files/file_replace.h"
#include "util/files/file_system.h"

namespace velmox {
namespace {

/// A folder with two files, one of which is to take the other's place.
struct FileReplace : ::testing::Test
{
    FileReplace() { writeTree(folder.path(), before); }

    bool copy() const { return copyFileTo(from, to, FilePermissions::Private); }
    bool replace() const { return replaceFile(from, to); }
    bool replaceAcrossVolumes() const
    {
        const FailingCall otherVolume("MoveFileExW", FALSE, ERROR_NOT_SAME_DEVICE);
        return replace();
    }

    const FileTree before{{"from", Str(3000, 'n')}, {"to", "old"}};
    const FileTree targetLost{{"from", Str(3000, 'n')}};
    const ScopedFolder folder;
    const Pathname from = folder / "from";
    const Pathname to = folder / "to";
};

TEST_F(FileReplace, CopiesAndReplacesWhatStands)
{
    // Four of the names that are tried for a copy are taken.
    EXPECT_TRUE(whileFailing({"CreateFileW", -1, ERROR_FILE_EXISTS, 0, 4},
                             [this] { return replaceAcrossVolumes(); }));
    EXPECT_EQ(readTree(folder.path()), (FileTree{{"from", Str(3000, 'n')}, {"to", Str(3000, 'n')}}));
    for (const std::size_t length : {0u, 1u, 1024u, 1025u, 100'000u}) {
        const FileTree copied{{"from", Str(length, 'c')}, {"to", Str(length, 'c')}};
        writeTree(folder.path(), {{"from", Str(length, 'c')}, {"to", "something longer than nothing"}});
        EXPECT_TRUE(copy());
        EXPECT_EQ(readTree(folder.path()), copied) << length;
    }
    writeWhole(from, "new");
    EXPECT_TRUE(replace());
    EXPECT_EQ(readTree(folder.path()), (FileTree{{"to", "new"}}));
}

TEST_F(FileReplace, LeavesAFileCopiedOntoItselfAlone)
{
    ASSERT_TRUE(CreateHardLinkW(asWide(folder / "link"), asWide(from), nullptr));
    for (const char *same : {"from", "FROM", "link"}) {
        EXPECT_TRUE(copyFileTo(from, folder / same, FilePermissions::Private)) << same;
        EXPECT_EQ(readWhole(from), Str(3000, 'n')) << same;
    }
}

TEST_F(FileReplace, RefusesWhatIsNoFile)
{
    EXPECT_TRUE(makeDir(folder / "folder", true));
    const std::tuple<const char *, const char *, DWORD, DWORD> cases[] = {
        {"absent", "to", ERROR_FILE_NOT_FOUND, ERROR_FILE_NOT_FOUND},
        {"folder", "to", ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
        {"from", "absent\\to", ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND}};
    for (const auto &[source, target, replaceError, copyError] : cases) {
        EXPECT_FALSE(replaceFile(folder / source, folder / target));
        EXPECT_EQ(GetLastError(), replaceError) << source;
        EXPECT_FALSE(copyFileTo(folder / source, folder / target, FilePermissions::Private));
        EXPECT_EQ(GetLastError(), copyError) << source;
    }
    EXPECT_EQ(readTree(folder.path()), before);
}

TEST_F(FileReplace, KeepsTheReasonOfAFailureAndTheTargetWhileItCan)
{
    constexpr bool (FileReplace::*kCopy)() const = &FileReplace::copy;
    constexpr bool (FileReplace::*kReplace)() const = &FileReplace::replace;
    constexpr bool (FileReplace::*kAcross)() const = &FileReplace::replaceAcrossVolumes;
    const std::tuple<bool (FileReplace::*)() const, const char *, int, DWORD, int, FileTree> cases[] = {
        // what is done, the call that fails, behind how many, why, how often; what is left
        {kCopy, "CreateFileW", 1, ERROR_SHARING_VIOLATION, 1, before},
        {kCopy, "DeleteFileW", 0, ERROR_SHARING_VIOLATION, 1, before},
        {kCopy, "CreateFileW", 2, ERROR_ACCESS_DENIED, 1, targetLost},
        {kCopy, "WriteFile", 1, ERROR_DISK_FULL, 1, targetLost},
        {kReplace, "MoveFileExW", 0, ERROR_ACCESS_DENIED, 1, before},
        {kReplace, "MoveFileExW", 0, ERROR_NOT_SAME_DEVICE, 2, before},
        {kAcross, "CreateFileW", 0, ERROR_FILE_EXISTS, 5, before},
        {kAcross, "ReadFile", 0, ERROR_READ_FAULT, 1, before}};
    for (const auto &[act, function, passed, error, failures, left] : cases) {
        writeTree(folder.path(), before);
        const int result = function == "CreateFileW"sv ? -1 : 0;
        EXPECT_FALSE(
            whileFailing({function, result, error, passed, failures}, [&] { return (this->*act)(); }));
        EXPECT_EQ(GetLastError(), error) << function << passed;
        EXPECT_EQ(readTree(folder.path()), left) << function << passed;
    }
}

TEST_F(FileReplace, TriesAgainToRenameOnlyAfterTransientErrors)
{
    const std::set<DWORD> transient{4,  5,  8,  14, 21, 29, 30, 31, 32, 33, 54,
                                    57, 58, 59, 60, 70, 71, 84, 88, 89, 113};
    RetryResult result;
    for (DWORD error = 1; error < 150; ++error) {
        writeWhole(from, "new");
        const FailingCall refused("MoveFileExW", FALSE, error, 0, 2);
        EXPECT_EQ(renameWithRetries(from, result, to, 3, 0), transient.contains(error)) << error;
        EXPECT_EQ(result.attempts, transient.contains(error) ? 3u : 1u) << error;
        EXPECT_EQ(result.statusCode, transient.contains(error) ? 0u : error);
    }
    EXPECT_FALSE(renameWithRetries(folder / "absent", result, to, 20, 10'000));
    const Str time = result.firstTime.toStr();
    EXPECT_EQ(result.toStr(),
              Str::fromFormat("Rename failed in 1 attempt(s) made between %s and %s [status code: 2]",
                              time.c_str(), time.c_str()));

    writeWhole(from, "new");
    const FailingCall locked("MoveFileExW", FALSE, ERROR_SHARING_VIOLATION, 0, 5);
    EXPECT_FALSE(renameWithRetries(from, result, to, 4, 5));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION + 0u);
    EXPECT_EQ(result.attempts, 4u);
    EXPECT_GE(result.lastTime.millisecondsSince(result.firstTime), 10);
    EXPECT_TRUE(renameWithRetries(from, result, to, 4, 0));
    EXPECT_TRUE(result.toStr().startsWith("Rename succeeded in 2 attempt(s) made between "));
    EXPECT_FALSE(result.toStr().contains("status code"));
}

} // namespace
} // namespace velmox
