#include "searchthing/lock.h"
#include "searchthing/osfile.h"

namespace velmox {
namespace {

/// A folder for one lock.
struct Lock : ::testing::Test
{
    const ScopedFolder folder;
    const Pathname path = folder / "guarded";
    const Pathname lock = folder / "guarded.lock";
};

TEST_F(Lock, TakesHoldsAndReleases)
{
    EXPECT_EQ(lockFileExists(path), LockState::Absent);
    EXPECT_EQ(lockFileTry(path), LockTry::Taken);
    EXPECT_EQ(lockFileExists(path), LockState::Exists);
    EXPECT_EQ(lockFileTry(path), LockTry::Exists);
    EXPECT_TRUE(readWhole(lock).startsWith(Str::fromFormat("%lu\n", GetCurrentProcessId())));
    EXPECT_EQ(readWhole(lock), ownerText());
    EXPECT_EQ(lockFileRelease(path), LockRelease::Done);
    EXPECT_EQ(lockFileRelease(path), LockRelease::Done);
    EXPECT_EQ(folder.count(), 0u);

    writeWhole(lock, "another owner");
    EXPECT_EQ(lockFileTry(path), LockTry::Exists);
    EXPECT_EQ(lockFileWait(path, 0), LockWait::TimedOut);
    EXPECT_EQ(readWhole(lock), "another owner");
}

TEST_F(Lock, ReportsErrors)
{
    const std::pair<Fault, std::function<bool()>> cases[] = {
        {{"CreateFileW", -1, ERROR_ACCESS_DENIED},
         [&] { return lockFileTry(path) == LockTry::AccessDenied; }},
        {{"WriteFile", 0, ERROR_DISK_FULL}, [&] { return lockFileTry(path) == LockTry::Failed; }},
        {{"CreateFileW", -1, ERROR_ACCESS_DENIED},
         [&] { return lockFileWait(path, 0) == LockWait::TimedOut; }},
        {{"CreateFileW", -1, ERROR_DISK_FULL}, [&] { return lockFileWait(path, 30) == LockWait::Failed; }},
        {{"DeleteFileW", 0, ERROR_PATH_NOT_FOUND},
         [&] { return lockFileRelease(path) == LockRelease::Done; }},
        {{"DeleteFileW", 0, 5}, [&] { return lockFileRelease(path) == LockRelease::Failed; }},
        {{"GetFileAttributesW", -1, 5}, [&] { return lockFileExists(path) == LockState::Unknown; }},
    };
    for (const auto &[fault, isTold] : cases) {
        EXPECT_TRUE(whileFailing(fault, isTold)) << fault.function << fault.error;
        EXPECT_EQ(GetLastError(), fault.error) << fault.function;
        EXPECT_EQ(folder.count(), 0u) << fault.function;
    }
    EXPECT_EQ(lockFileTry(Pathname(u"C:\\").concat(Str(252, 'x'))), LockTry::Failed);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE + 0u);
    EXPECT_EQ(lockFileExists(Pathname(u"C:\\absent\\").concat(Str(244, 'x'))), LockState::Absent);
}

TEST_F(Lock, WaitsForAsLongAsTold)
{
    EXPECT_EQ(lockFileWait(path, 0), LockWait::Taken);
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(lockFileWait(path, 1), LockWait::TimedOut);
    EXPECT_GE(GetTickCount64() - start, 990u);
    // Released when the wait has found it held at least once.
    FailingCall tries("CreateFileW", -1, 0, 0, 0);
    tries.onAnyThread();
    std::thread releaser([&] {
        while (tries.calls() == 0) {
            std::this_thread::yield();
        }
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
        writeWhole(path, Str::fromFormat("%d", readWhole(path).toInt(-1'000'000) + 1).view());
        ASSERT_EQ(lockFileRelease(path), LockRelease::Done) << GetLastError();
    }
}

TEST(LockChild, DISABLED_CountsUp)
{
    countUp(ChildTest::argument());
}

TEST_F(Lock, ExcludesProcesses)
{
    writeWhole(path, "0");
    ChildTest first("LockChild.DISABLED_CountsUp", path);
    ChildTest second("LockChild.DISABLED_CountsUp", path);
    countUp(path);
    EXPECT_TRUE(first.succeeds() && second.succeeds());
    EXPECT_EQ(readWhole(path), Str::fromFormat("%d", 3 * kIncrements));
}

TEST_F(Lock, TriesOutAFolder)
{
    EXPECT_EQ(lockFileCanCreateIn(folder.path()), 0);
    EXPECT_EQ(lockFileCanCreateIn(Pathname()), 2);
    EXPECT_EQ(lockFileCanCreateIn(folder / "absent"), 7);
    EXPECT_EQ(folder.count(), 0u);
}

} // namespace
} // namespace velmox
