#include "searchthing/lock.h"
#include "searchthing/osfile.h"
#include "tests/support/child_test.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"
#include "util/windows_api.h"

#include <gtest/gtest.h>
#include <thread>

namespace velmox {
namespace {

using testing::ChildTest;
using testing::readWhole;
using testing::ScopedFolder;
using testing::writeWhole;

TEST(LockTest, TakesHoldsAndReleases)
{
    const ScopedFolder folder;
    const Pathname path = folder / "guarded";
    EXPECT_EQ(lockFileExists(path), LockState::Absent);
    EXPECT_EQ(lockFileTry(path), LockTry::Taken);
    EXPECT_EQ(lockFileExists(path), LockState::Exists);
    EXPECT_EQ(lockFileTry(path), LockTry::Exists);
    EXPECT_TRUE(
        readWhole(folder / "guarded.lock").startsWith(Str::fromFormat("%lu\n", GetCurrentProcessId())));
    EXPECT_EQ(readWhole(folder / "guarded.lock"), ownerText());
    EXPECT_EQ(lockFileRelease(path), LockRelease::Done);
    EXPECT_EQ(lockFileRelease(path), LockRelease::Done);
    EXPECT_EQ(folder.count(), 0u);
}

TEST(LockTest, LeavesAHeldLockUntouched)
{
    const ScopedFolder folder;
    writeWhole(folder / "guarded.lock", "another owner");
    EXPECT_EQ(lockFileTry(folder / "guarded"), LockTry::Exists);
    EXPECT_EQ(lockFileWait(folder / "guarded", 0), LockWait::TimedOut);
    EXPECT_EQ(readWhole(folder / "guarded.lock"), "another owner");
}

TEST(LockTest, ReportsErrors)
{
    const ScopedFolder folder;
    const Pathname nowhere = folder / "absent\\guarded";
    EXPECT_EQ(lockFileTry(nowhere), LockTry::Failed);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND + 0u);
    EXPECT_EQ(lockFileWait(nowhere, 30), LockWait::Failed);
    EXPECT_EQ(lockFileRelease(nowhere), LockRelease::Done);
    EXPECT_EQ(lockFileExists(nowhere), LockState::Absent);
    EXPECT_EQ(lockFileExists(folder / "bad<name"), LockState::Unknown);
    EXPECT_EQ(lockFileTry(Pathname(u"C:\\").concat(Str(252, 'x'))), LockTry::Failed);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE + 0u);
    EXPECT_EQ(lockFileExists(Pathname(u"C:\\absent\\").concat(Str(244, 'x'))), LockState::Absent);
}

TEST(LockTest, WaitsForAsLongAsTold)
{
    const ScopedFolder folder;
    const Pathname path = folder / "guarded";
    EXPECT_EQ(lockFileWait(path, 0), LockWait::Taken);
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(lockFileWait(path, 1), LockWait::TimedOut);
    EXPECT_GE(GetTickCount64() - start, 990u);
    std::thread releaser([&path] {
        Sleep(50);
        EXPECT_EQ(lockFileRelease(path), LockRelease::Done);
    });
    EXPECT_EQ(lockFileWait(path, 60), LockWait::Taken);
    releaser.join();
}

constexpr int kIncrements = 100;

/// Adds one to the number in a file, over and over; only the lock keeps several at it from losing any.
void countUp(const Pathname &path)
{
    for (int i = 0; i < kIncrements; ++i) {
        ASSERT_EQ(lockFileWait(path, 60), LockWait::Taken) << GetLastError();
        const Str count = readWhole(path);
        writeWhole(path, Str::fromFormat("%d", count.toInt(-1'000'000) + 1).view());
        ASSERT_EQ(lockFileRelease(path), LockRelease::Done) << GetLastError();
    }
}

TEST(LockChild, DISABLED_CountsUp)
{
    countUp(ChildTest::argument());
}

TEST(LockTest, ExcludesProcesses)
{
    const ScopedFolder folder;
    const Pathname path = folder / "count";
    writeWhole(path, "0");
    ChildTest first("LockChild.DISABLED_CountsUp", path);
    ChildTest second("LockChild.DISABLED_CountsUp", path);
    countUp(path);
    EXPECT_TRUE(first.succeeds());
    EXPECT_TRUE(second.succeeds());
    EXPECT_EQ(readWhole(path), Str::fromFormat("%d", 3 * kIncrements));
}

TEST(LockTest, TriesOutAFolder)
{
    const ScopedFolder folder;
    EXPECT_EQ(lockFileCanCreateIn(folder.path()), 0);
    EXPECT_EQ(lockFileCanCreateIn(Pathname()), 2);
    EXPECT_EQ(lockFileCanCreateIn(folder / "absent"), 7);
    EXPECT_EQ(folder.count(), 0u);
    // The file still fits into a path of 259 units, but its lock does not.
    Pathname deep(folder.path());
    while (deep.size() < 236) {
        deep.append(std::string(std::min<std::size_t>(100, 237 - deep.size()), 'd'));
    }
    ASSERT_TRUE(makeDirs(deep, false));
    EXPECT_EQ(lockFileCanCreateIn(deep), 9) << deep.size();
}

} // namespace
} // namespace velmox
