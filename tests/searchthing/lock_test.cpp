#include "searchthing/lock.h"
#include "searchthing/osfile.h"
#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"
#include "util/system/windows_api.h"

#include <gtest/gtest.h>
#include <thread>

namespace velmox {
namespace {

using testing::ChildTest;
using testing::FailingCall;
using testing::readWhole;
using testing::writeWhole;

/// A folder for one lock.
struct Lock : ::testing::Test
{
    const testing::ScopedFolder folder;
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
    const std::tuple<const char *, int, DWORD, std::function<bool()>> cases[] = {
        {"CreateFileW", -1, ERROR_ACCESS_DENIED, [&] { return lockFileTry(path) == LockTry::AccessDenied; }},
        {"CreateFileW", -1, ERROR_ALREADY_EXISTS, [&] { return lockFileTry(path) == LockTry::Exists; }},
        {"CreateFileW", -1, ERROR_DISK_FULL, [&] { return lockFileTry(path) == LockTry::Failed; }},
        {"WriteFile", 0, ERROR_DISK_FULL, [&] { return lockFileTry(path) == LockTry::Failed; }},
        {"CreateFileW", -1, ERROR_ACCESS_DENIED, [&] { return lockFileWait(path, 0) == LockWait::TimedOut; }},
        {"CreateFileW", -1, ERROR_DISK_FULL, [&] { return lockFileWait(path, 30) == LockWait::Failed; }},
        {"CreateFileW", -1, ERROR_PATH_NOT_FOUND, [&] { return lockFileWait(path, 30) == LockWait::Failed; }},
        {"DeleteFileW", 0, ERROR_PATH_NOT_FOUND, [&] { return lockFileRelease(path) == LockRelease::Done; }},
        {"DeleteFileW", 0, 8, [&] { return lockFileRelease(path) == LockRelease::NotEnoughMemory; }},
        {"DeleteFileW", 0, ERROR_ACCESS_DENIED, [&] { return lockFileRelease(path) == LockRelease::Failed; }},
        {"GetFileAttributesW", -1, 3, [&] { return lockFileExists(path) == LockState::Absent; }},
        {"GetFileAttributesW", -1, ERROR_ACCESS_DENIED,
         [&] { return lockFileExists(path) == LockState::Unknown; }},
        {"CreateFileW", -1, ERROR_ACCESS_DENIED, [&] { return lockFileCanCreateIn(folder.path()) == 7; }},
    };
    for (const auto &[function, result, error, isTold] : cases) {
        const FailingCall refused(function, result, error);
        EXPECT_TRUE(isTold()) << function << error;
        EXPECT_EQ(GetLastError(), error) << function;
        EXPECT_EQ(refused.failed(), 1) << function;
        EXPECT_EQ(folder.count(), 0u) << function;
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
    std::thread releaser([this] {
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

// The name is found once a process.
TEST(LockChild, DISABLED_KnowsNoHost)
{
    const FailingCall refused(ChildTest::argument() == u"gethostname" ? "gethostname" : "WSAStartup", -1, 1);
    EXPECT_EQ(ownerText(), "0\nuninitialized");
}

TEST_F(Lock, IsHeldByNobodyWithoutAHostName)
{
    EXPECT_TRUE(ChildTest("LockChild.DISABLED_KnowsNoHost", u"gethostname").succeeds());
    EXPECT_TRUE(ChildTest("LockChild.DISABLED_KnowsNoHost", u"WSAStartup").succeeds());
}

TEST_F(Lock, TriesOutAFolder)
{
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
