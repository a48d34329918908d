#include "conf/ground/conf_exceptions.h"
#include "conf/root/username_mapper.h"
#include "tests/conf/conf_root.h"
#include "util/system/environment.h"

namespace velmox {
namespace {

constexpr char kBootstrap[] = R"([bootstrap]
apps/*/local = conf
apps/*/metadata/local.meta = confdb
apps/*/lookups = lookups
apps/*/models = models
[writes]
data:nobody:$app$:models = apps/$app$/models
data:nobody:$app$:lookups = apps/$app$/lookups
data:nobody:$app$:$type$ = apps/$app$/local
meta:nobody:$app$:$type$ = apps/$app$/metadata/local.meta
)";
/// What a conf file begins with that the store makes.
constexpr char kNew[] = "\xEF\xBB\xBF\r\n";
constexpr char kStaged[] = "home/var/run/velmox/staged";

/// Several pages of a disk, which can be full before the first, after it, or before the last.
Str paged(const Str &text)
{
    const Str page = Str("#").append(5'000, '.') << "\n";
    return Str() << page << text << page << page;
}

/// A change that goes to one file.
struct Change
{
    const char *name;
    const char *file;
    Str before; ///< empty when there is no file
    Str after;
    const char *address; ///< null for the name of a user
    const char *value;   ///< null for that of an owner
};

const Change kChanges[] = {
    {"conf", "apps\\a\\local\\t.conf", paged("[s]\nk = old\n"), paged("[s]\nk = new\n"), "/nobody/a/t/s/k",
     "new"},
    {"new conf", "apps\\b\\local\\t.conf", "", "[s]\r\nk = new\r\n", "/nobody/b/t/s/k", "new"},
    {"meta", "apps\\a\\metadata\\local.meta", paged("[t]\nowner = old\n"), paged("[t]\nowner = new\n"),
     "/nobody/a/t", nullptr},
    {"new meta", "apps\\b\\metadata\\local.meta", "", "[t]\r\nowner = new\r\n", "/nobody/b/t", nullptr},
    {"model", "apps\\a\\models\\m.model", paged("old"), paged("new"), "/nobody/a/models/m", "#"},
    {"lookup", "apps\\a\\lookups\\l.csv", paged("old"), paged("new"), "/nobody/a/lookups/l.csv", kStaged},
    {"user", "users\\users.ini", paged("[contains-uppercase]\nnul = _nul\n"),
     paged("[contains-uppercase]\nnul = _nul\ncon = _con.7ed201fa20d25d22b291dc85ae9e5ced\n"), nullptr,
     nullptr},
};

/// A store in which one change is to be made.
class ChangedStore
{
public:
    explicit ChangedStore(const Change &change) : change_(change)
    {
        if (!change.before.empty()) {
            root.write(replaced(change.file, "\\", "/"), change.before.view());
        }
        root.write(kStaged, change.after.view());
        root.makeFolder("apps/b");
        root.shared();
        scene_ = readTree(root.path());
    }

    /// What the caller is told.
    bool make() const
    {
        if (change_.address == nullptr) {
            return !UsernameMapper(root.setup(), root.shared().settings()).directoryName("con").empty();
        }
        ConfPathTrie tree;
        if (change_.value == nullptr) {
            ConfPathMetadata metadata;
            metadata.setOwner("new");
            tree.setMetadata(metadata);
        } else if (change_.value == Str("#")) {
            tree.setData(change_.after);
        } else {
            tree.setData(change_.value == kStaged ? (root / kStaged).toStr() : Str(change_.value));
        }
        return raisedBy<ConfPathWriteException>([&] { root.at(change_.address).write(tree); }) == "nothing";
    }

    /// The file is as it was, or as it is to be; a new conf file begins as an empty one. Nothing else is new
    /// but a file whose name `leftOver` ends, with the new content.
    void expectWhole(bool isChanged, const char *leftOver = nullptr) const
    {
        FileTree files = readTree(root.path());
        const Str file = replaced(files[change_.file], kNew, "");
        EXPECT_TRUE(file == (isChanged ? change_.after : change_.before)) << file.substr(0, 200).c_str();
        for (const auto &[name, content] : files) {
            const bool isLeft = leftOver && name.endsWith(leftOver) && content == change_.after;
            EXPECT_TRUE(scene_.contains(name) || name == change_.file || isLeft) << name.c_str();
        }
    }
    /// With "FILE" for the path of the file.
    Str told(const ConfLog &log) const
    {
        return replaced(log.told(), Str("ROOT/") << replaced(change_.file, "\\", "/"), "FILE");
    }

    const ConfRoot root{kBootstrap};

private:
    const Change &change_;
    const ScopedHome home_{root / "home"};
    FileTree scene_;
};

/// A call that fails while a change is made, and what becomes of the change. Of the log a part; all of it
/// when it is empty.
struct Row
{
    const char *change;
    const char *function;
    std::intptr_t result;
    DWORD error;
    int passed;
    bool succeeds;
    const char *log;
    int failures = 1;
    const char *leftOver = nullptr;
    bool fromOtherVolume = false;
};

constexpr Row kRows[] = {
    {"conf", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 1, false, "Cannot open file=FILE for parsing: <32>"},
    {"conf", "fflush", -1, ERROR_DISK_FULL, 0, false, "Error while writing to: FILE.PID.tmp"},
    {"conf", "MoveFileExW", 0, ERROR_SHARING_VIOLATION, 0, false,
     "Cannot rename FILE.PID.tmp to FILE: Rename failed in 20 attempt(s) [status code: 32]", 20, ".tmp"},
    {"conf", "MoveFileExW", 0, ERROR_ACCESS_DENIED, 0, true, "Rename succeeded in 2 attempt(s)"},
    {"new conf", "CreateDirectoryW", 0, ERROR_DISK_FULL, 0, false, "create or open conf file: FILE: <112>"},
    {"meta", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, false, "FILE: Failed to load from disk"},
    {"new meta", "CreateDirectoryW", 0, ERROR_DISK_FULL, 0, false, "Cannot create parent directory: "},
    {"model", "fwrite", 100, ERROR_SUCCESS, 0, false, "Write to file failed with data remaining: FILE.tmp"},
    {"model", "MoveFileExW", 0, ERROR_SHARING_VIOLATION, 0, false, "Cannot rename: FILE.tmp -> FILE: <32>"},
    {"lookup", "MoveFileExW", 0, ERROR_ACCESS_DENIED, 0, false, "Failed to move lookup table: "},
    {"lookup", "MoveFileExW", 0, ERROR_NOT_SAME_DEVICE, 0, true, ""},
    {"lookup", "WriteFile", 0, ERROR_DISK_FULL, 1, false, " -> FILE.tmp: <112>", 1, nullptr, true},
    {"user", "MoveFileExW", 0, ERROR_DISK_FULL, 0, false, "Error flushing username mapping to file: FILE", 1,
     ".tmp"},
};

const Change &changeOf(const Str &name)
{
    return *std::ranges::find(kChanges, name, [](const Change &change) { return Str(change.name); });
}

TEST(FailingSteps, LeaveTheOldFileOrTheNewOneAndAMessage)
{
    for (const Row &row : kRows) {
        SCOPED_TRACE(Str::fromFormat("%s: %s after %d", row.change, row.function, row.passed).c_str());
        const ChangedStore store(changeOf(row.change));
        {
            const FailingCall noPause("Sleep", 0, 0, 0, 100);
            const ConfLog log(store.root);
            {
                std::optional<FailingCall> move;
                if (row.fromOtherVolume) {
                    move.emplace("MoveFileExW", 0, ERROR_NOT_SAME_DEVICE);
                }
                const FailingCall failing(row.function, row.result, row.error, row.passed, row.failures);
                EXPECT_EQ(store.make(), row.succeeds);
                EXPECT_EQ(failing.failed(), row.failures);
            }
            const Str told = store.told(log);
            EXPECT_TRUE(*row.log == '\0' ? told.empty() : told.contains(row.log)) << told.c_str();
        }
        store.expectWhole(row.succeeds, row.leftOver);
        if (!row.succeeds) {
            EXPECT_TRUE(store.make()) << "a second time";
            store.expectWhole(true);
        }
    }
}

std::uint64_t freeBytes(const Pathname &folder)
{
    ULARGE_INTEGER bytes;
    EXPECT_TRUE(GetDiskFreeSpaceExW(asWide(folder), nullptr, nullptr, &bytes));
    return bytes.QuadPart;
}

/// Needs a small disk at VELMOX_TEST_DISK; scripts/check-disk makes one.
TEST(FailingSteps, DISABLED_OnAFullDisk)
{
    const WideStr disk = environmentVariable(u"VELMOX_TEST_DISK");
    ASSERT_LE(freeBytes(disk), 4u << 20) << "not a small disk";
    setEnvironmentVariable(u"TMP", disk);
    for (const Change &change : kChanges) {
        unsigned failures = 0;
        for (bool succeeded = false; !succeeded;) {
            SCOPED_TRACE(Str::fromFormat("%s in %u pages", change.name, failures).c_str());
            const ChangedStore store(change);
            {
                constexpr unsigned kPage = 4'096;
                const Str rest(freeBytes(disk) - failures * kPage, 'b');
                writeWhole(store.root / "ballast", rest.view());
                const ConfLog log(store.root);
                succeeded = store.make();
                EXPECT_TRUE(succeeded || store.told(log).contains("<112>")) << store.told(log).c_str();
                EXPECT_TRUE(removeFile(store.root / "ballast"));
            }
            store.expectWhole(succeeded);
            EXPECT_TRUE(succeeded || store.make());
            store.expectWhole(true);
            failures += succeeded ? 0 : 1;
            ASSERT_LT(failures, 20u);
        }
        printf("%s: failed with up to %u pages of room\n", change.name, failures);
    }
}

} // namespace
} // namespace velmox
