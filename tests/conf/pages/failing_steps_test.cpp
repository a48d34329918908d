#include "conf/ground/conf_path_exceptions.h"
#include "conf/root/username_mapper.h"
#include "tests/conf/conf_root.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "util/system/environment.h"

#include <optional>

namespace velmox {
namespace {

using namespace testing;

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
            return !UsernameMapper(root.setup()).directoryName("con").empty();
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
    /// With "FILE" for the path of the file, and "REFUSED" for the line with which a conf mapper refuses a
    /// value.
    Str told(const ConfLog &log) const
    {
        const Str refused =
            Str::fromFormat("ERROR ConfPathMapper: ROOT/apps/%c/local: Setting %s = new: Cannot load "
                            "ini file to modify\n",
                            change_.file[5], change_.address ? change_.address : "");
        const Str text = replaced(log.told(), Str("ROOT/") << replaced(change_.file, "\\", "/"), "FILE");
        return replaced(text, refused, "REFUSED\n");
    }

    const ConfRoot root{kBootstrap};

private:
    const Change &change_;
    const ScopedHome home_{root / "home"};
    FileTree scene_;
};

/// A call that fails while a change is made, and what becomes of the change.
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
    {"conf", "CreateFileW", -1, ERROR_ACCESS_DENIED, 0, false,
     "ERROR ConfPathMapper: Cannot open file for create or append: FILE: <5>\n"
     "ERROR ConfPathMapper: Cannot create or open conf file: FILE: <5>\n"
     "REFUSED\n"},
    {"conf", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 1, false,
     "ERROR IniFile: Cannot open file=FILE for parsing: <32>\n"
     "REFUSED\n"},
    {"conf", "ferror", 1, ERROR_CRC, 0, false,
     "ERROR IniFile: Cannot read file=FILE: <23>\n"
     "REFUSED\n"},
    {"conf", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 2, true,
     "WARN ConfPathMapper: Failed to open: FILE: <32>\n"},
    {"conf", "CreateFileW", -1, ERROR_ACCESS_DENIED, 3, false,
     "ERROR IniFile: Cannot open tmpfile=FILE.PID.tmp: <5>\n"
     "ERROR IniFile: Error while writing to: FILE.PID.tmp\n"},
    {"conf", "_setmode", -1, ERROR_ACCESS_DENIED, 2, false,
     "ERROR IniFile: Cannot open unicode-translated tmpfile=FILE.PID.tmp: <5>\n"
     "ERROR IniFile: Error while writing to: FILE.PID.tmp\n"},
    {"conf", "fwrite", 0, ERROR_DISK_FULL, 0, false,
     "ERROR IniFile: Cannot flush tmpfile=FILE.PID.tmp: <112>\n"
     "ERROR IniFile: Error while writing to: FILE.PID.tmp\n"},
    {"conf", "fflush", -1, ERROR_DISK_FULL, 0, false,
     "ERROR IniFile: Cannot flush tmpfile=FILE.PID.tmp: <112>\n"
     "ERROR IniFile: Error while writing to: FILE.PID.tmp\n"},
    {"conf", "MoveFileExW", 0, ERROR_DISK_FULL, 0, false,
     "ERROR IniFile: Cannot rename FILE.PID.tmp to FILE: Rename failed in 1 attempt(s) [status code: 112]\n",
     1, ".tmp"},
    {"conf", "MoveFileExW", 0, ERROR_SHARING_VIOLATION, 0, false,
     "ERROR IniFile: Cannot rename FILE.PID.tmp to FILE: Rename failed in 20 attempt(s) [status code: 32]\n",
     20, ".tmp"},
    {"conf", "MoveFileExW", 0, ERROR_ACCESS_DENIED, 0, true,
     "WARN IniFile: Renamed FILE.PID.tmp to FILE: Rename succeeded in 2 attempt(s)\n"},
    {"new conf", "CreateDirectoryW", 0, ERROR_DISK_FULL, 0, false,
     "ERROR ConfPathMapper: Cannot create parent directory: ROOT/apps/b/local: <112>\n"
     "ERROR ConfPathMapper: Cannot create or open conf file: FILE: <112>\n"
     "REFUSED\n"},
    {"new conf", "_setmode", -1, ERROR_ACCESS_DENIED, 0, true,
     "WARN ConfPathMapper: Cannot open file as UTF-8: FILE: <5>\n"},
    {"new conf", "fwrite", 0, ERROR_DISK_FULL, 0, true,
     "WARN ConfPathMapper: Cannot set UTF-8 encoding: FILE: <112>\n"},
    {"meta", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, false,
     "ERROR IniFile: Cannot open file=FILE for parsing: <32>\n"
     "ERROR ConfObjectManagerDB: FILE: Failed to load from disk and cannot flush\n"},
    {"meta", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 1, false,
     "ERROR IniFile: Cannot open tmpfile=FILE.PID.tmp: <32>\n"
     "ERROR IniFile: Error while writing to: FILE.PID.tmp\n"},
    {"meta", "CreateFileW", -1, ERROR_ACCESS_DENIED, 2, true,
     "ERROR ConfObjectManagerDB: Cannot initialize: FILE: <5>\n"},
    {"meta", "MoveFileExW", 0, ERROR_DISK_FULL, 0, false,
     "ERROR IniFile: Cannot rename FILE.PID.tmp to FILE: Rename failed in 1 attempt(s) [status code: 112]\n",
     1, ".tmp"},
    {"new meta", "CreateDirectoryW", 0, ERROR_DISK_FULL, 0, false,
     "ERROR ConfObjectManagerDB: Cannot create parent directory: ROOT/apps/b/metadata: <112>\n"},
    {"model", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, true,
     "ERROR ModelConfPathMapper: Cannot read: FILE: <32>\n"},
    {"model", "fread", 0, ERROR_CRC, 0, true, "ERROR ModelConfPathMapper: Cannot read: FILE: <23>\n"},
    {"model", "CreateFileW", -1, ERROR_DISK_FULL, 1, false,
     "ERROR ModelConfPathMapper: Cannot open temporary file: FILE.tmp: <112>\n"},
    {"model", "fwrite", 100, ERROR_SUCCESS, 0, false,
     "ERROR ModelConfPathMapper: Write to file failed with data remaining: FILE.tmp: <112>\n"},
    {"model", "fflush", -1, ERROR_DISK_FULL, 0, false,
     "ERROR ModelConfPathMapper: Cannot flush temporary file: FILE.tmp: <112>\n"},
    {"model", "MoveFileExW", 0, ERROR_SHARING_VIOLATION, 0, false,
     "ERROR ModelConfPathMapper: Cannot rename: FILE.tmp -> FILE: <32>\n"},
    {"lookup", "MoveFileExW", 0, ERROR_ACCESS_DENIED, 0, false,
     "ERROR LookupTableConfPathMapper: Failed to move lookup table: ROOT/home/var/run/velmox/staged -> FILE: "
     "<5>\n"},
    {"lookup", "MoveFileExW", 0, ERROR_NOT_SAME_DEVICE, 0, true, ""},
    {"lookup", "MoveFileExW", 0, ERROR_NOT_SAME_DEVICE, 0, false,
     "ERROR LookupTableConfPathMapper: Cannot rename: FILE.tmp -> FILE: <17>\n", 2},
    {"lookup", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, false,
     "ERROR LookupTableConfPathMapper: Cannot copy: ROOT/home/var/run/velmox/staged -> FILE.tmp: <32>\n", 1,
     nullptr, true},
    {"lookup", "WriteFile", 0, ERROR_DISK_FULL, 1, false,
     "ERROR LookupTableConfPathMapper: Cannot copy: ROOT/home/var/run/velmox/staged -> FILE.tmp: <112>\n", 1,
     nullptr, true},
    {"lookup", "DeleteFileW", 0, ERROR_ACCESS_DENIED, 0, true,
     "WARN LookupTableConfPathMapper: Failed to remove: ROOT/home/var/run/velmox/staged: <5>\n", 1, nullptr,
     true},
    {"user", "CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, false,
     "ERROR IniFile: Cannot open file=FILE for parsing: <32>\n"
     "ERROR UsernameMapper: Error opening username mapping file: FILE\n"
     "ERROR IniFile: Cannot open file=FILE for parsing: <32>\n"
     "ERROR UsernameMapper: Error opening username mapping file: FILE\n"
     "ERROR UsernameMapper: Error accessing username mapping file: FILE\n",
     2},
    {"user", "MoveFileExW", 0, ERROR_DISK_FULL, 0, false,
     "ERROR IniFile: Cannot rename FILE.PID.tmp to FILE: Rename failed in 1 attempt(s) [status code: 112]\n"
     "ERROR UsernameMapper: Error flushing username mapping to file: FILE: con = "
     "_con.7ed201fa20d25d22b291dc85ae9e5ced\n",
     1, ".tmp"},
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
            EXPECT_EQ(store.told(log), row.log);
        }
        store.expectWhole(row.succeeds, row.leftOver);
        if (!row.succeeds) {
            EXPECT_TRUE(store.make()) << "a second time";
            store.expectWhole(true);
        }
    }
}

enum class Obstacle
{
    FolderInPlace, ///< where the file is meant
    HeldOpen,      ///< by somebody who lets nobody replace it
    FolderGone,    ///< with all that is in it
};

constexpr struct
{
    const char *change;
    Obstacle obstacle;
    const char *log;
} kObstructed[] = {
    {"conf", Obstacle::FolderInPlace,
     "ERROR ConfPathMapper: FILE already exists, but it is a directory\n"
     "ERROR ConfPathMapper: Cannot create or open conf file: FILE: <183>\n"
     "REFUSED\n"},
    {"meta", Obstacle::FolderInPlace,
     "ERROR IniFile: Cannot open file=FILE for parsing: <5>\n"
     "ERROR ConfObjectManagerDB: FILE: Failed to load from disk and cannot flush\n"},
    {"model", Obstacle::FolderInPlace, "ERROR ModelConfPathMapper: Cannot rename: FILE.tmp -> FILE: <5>\n"},
    {"user", Obstacle::FolderInPlace,
     "ERROR IniFile: Cannot open file=FILE for parsing: <5>\n"
     "ERROR UsernameMapper: Error opening username mapping file: FILE\n"
     "ERROR IniFile: Cannot open file=FILE for parsing: <5>\n"
     "ERROR UsernameMapper: Error opening username mapping file: FILE\n"
     "ERROR UsernameMapper: Error accessing username mapping file: FILE\n"},
    {"conf", Obstacle::HeldOpen,
     "ERROR ConfPathMapper: Cannot open file for create or append: FILE: <32>\n"
     "ERROR ConfPathMapper: Cannot create or open conf file: FILE: <32>\n"
     "REFUSED\n"},
    {"meta", Obstacle::HeldOpen,
     "ERROR IniFile: Cannot rename FILE.PID.tmp to FILE: Rename failed in 20 attempt(s) [status code: 5]\n"},
    {"model", Obstacle::HeldOpen, "ERROR ModelConfPathMapper: Cannot rename: FILE.tmp -> FILE: <5>\n"},
    {"lookup", Obstacle::HeldOpen,
     "ERROR LookupTableConfPathMapper: Failed to move lookup table: ROOT/home/var/run/velmox/staged -> FILE: "
     "<5>\n"},
    {"conf", Obstacle::FolderGone, nullptr},
    {"meta", Obstacle::FolderGone, nullptr},
    {"model", Obstacle::FolderGone, nullptr},
    {"user", Obstacle::FolderGone, nullptr},
};

TEST(FailingSteps, GetOverRealObstaclesOnceTheyAreGone)
{
    const FailingCall noPause("Sleep", 0, 0, 0, 1'000);
    for (const auto &[name, obstacle, log] : kObstructed) {
        SCOPED_TRACE(Str::fromFormat("%s: %d", name, static_cast<int>(obstacle)).c_str());
        const Change &change = changeOf(name);
        const ChangedStore store(change);
        const Pathname file = store.root / change.file;
        FileHandle held;
        if (obstacle == Obstacle::HeldOpen) {
            held = lockOpen(file);
        } else {
            ASSERT_TRUE(removeFile(file));
            ASSERT_TRUE(obstacle == Obstacle::FolderInPlace ? makeDir(file, true)
                                                            : RemoveDirectoryW(asWide(file.dirname())));
        }
        {
            const ConfLog told(store.root);
            EXPECT_EQ(store.make(), log == nullptr);
            EXPECT_EQ(store.told(told), log == nullptr ? "" : log);
        }
        held.reset();
        RemoveDirectoryW(asWide(file));
        EXPECT_TRUE(log == nullptr || store.make());
        if (obstacle == Obstacle::HeldOpen) {
            store.expectWhole(true);
        }
        EXPECT_TRUE(readWhole(file).contains(change.value && change.value[0] != '#' ? "new" : "")) << name;
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
