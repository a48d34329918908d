#include "conf/ground/conf_path_exceptions.h"
#include "conf/root/username_mapper.h"
#include "conf/store/sentinel_scope.h"
#include "conf/store/shared_conf_services.h"
#include "searchthing/lock.h"
#include "tests/conf/conf_root.h"
#include "tests/support/failing_call.h"

namespace velmox {
namespace {

using namespace testing;

// Digests of the names, as any MD5 program gives them.
constexpr char kCon[] = "_con.7ed201fa20d25d22b291dc85ae9e5ced";
constexpr char kDomainUser[] = "dom_anna.d8a4ff53c4bf5528cd8a6100b1435ef3";

Str reserved(const Str &safeName)
{
    return Str("_reserved/") << safeName;
}

/// A root whose apps and users lie in "storage" below it.
void shareStorage(const ConfRoot &root, const char *settings = "")
{
    root.makeFolder("storage/apps");
    root.write("system/default/server.conf", Str("[pooling]\nstate = enabled\nstorage = ")
                                                 << (root / "storage").toStr() << "\n"
                                                 << settings);
}

TEST(SentinelScope, LocksSharedStorageAlone)
{
    const ConfRoot alone;
    {
        const SentinelScope scope(alone.setup(), "nothing");
        EXPECT_FALSE(alone.has("apps"));
    }
    const ConfRoot root;
    shareStorage(root, "lock.timeout = 1ms\nlock.logging = 1\n");
    const BundlesSetup setup = root.setup();
    const Pathname sentinel = setup.sentinelFile();
    {
        const SentinelScope scope(setup, "outer");
        const SentinelScope nested(setup, "nested");
        EXPECT_EQ(lockFileExists(sentinel), LockState::Exists);
        EXPECT_TRUE(root.text("storage/apps/sentinel.txt").endsWith(": outer\n"));
    }
    EXPECT_EQ(lockFileExists(sentinel), LockState::Absent);

    ASSERT_EQ(lockFileTry(sentinel), LockTry::Taken);
    EXPECT_TRUE(raisedBy<ConfPathException>([&] { SentinelScope(setup, "refused"); })
                    .startsWith(Str::fromFormat("Failed to lock %s with code 1, possible reason: ",
                                                sentinel.toStr().c_str())));
    EXPECT_EQ(lockFileRelease(sentinel), LockRelease::Done);
    {
        const FailingCall full("CreateFileW", -1, ERROR_DISK_FULL);
        const Str message = raisedBy<ConfPathException>([&] { SentinelScope(setup, "refused"); });
        EXPECT_TRUE(message.contains(" with code -1, ")) << message.c_str();
    }
    // A note that cannot be made, and a lock that cannot be taken off, are told and keep nobody from writing.
    const ConfLog log(root);
    {
        const FailingCall noNote("CreateFileW", -1, ERROR_DISK_FULL, 1);
        const FailingCall noRelease("DeleteFileW", FALSE, ERROR_SHARING_VIOLATION);
        const SentinelScope scope(setup, "silent");
    }
    EXPECT_EQ(log.text(),
              "WARN SentinelScope: Cannot note a write in ROOT/storage/apps/sentinel.txt: <112>\n"
              "WARN SentinelScope: Cannot release the lock of ROOT/storage/apps/sentinel.txt: <32>\n");
    EXPECT_EQ(lockFileRelease(sentinel), LockRelease::Done);
}

TEST(UsernameMapper, MakesSafeNames)
{
    static constexpr struct
    {
        const char *name;
        const char *safe; ///< up to the digest; null when the name is safe as it is
    } kCases[] = {
        {"anna", nullptr},
        {"Anna B", nullptr},
        {"a.b", nullptr},
        {"DOM\\Anna", "dom_anna."},
        {"a/b", "a_b."},
        {"anna.", "_anna.."},
        {"<>:\"/\\|?*", "_________."},
        {"con", "_con."},
        {"NUL.x", "_nul.x."},
        {"con:", "con_."},
        {"..", "_..."},
        {"\xC3\x84:", "\xC3\xA4_."},
    };
    for (const auto &[name, safe] : kCases) {
        EXPECT_EQ(UsernameMapper::needsMapping(name), safe != nullptr) << name;
        if (safe != nullptr) {
            const Str made = UsernameMapper::makeSafeName(name);
            EXPECT_TRUE(made.startsWith(safe)) << made.view();
            EXPECT_EQ(made.size(), std::string_view(safe).size() + 32) << made.view();
        }
    }
    EXPECT_EQ(UsernameMapper::makeSafeName("con"), kCon);
    EXPECT_EQ(UsernameMapper::makeSafeName("dom\\anna"), kDomainUser);
}

struct UsernameMapperFile : ::testing::Test
{
    static constexpr char kMap[] = "users/users.ini";
    const ConfRoot root{""};
};

TEST_F(UsernameMapperFile, RecordsANameOnceForAllWhoAsk)
{
    UsernameMapper mapper(root.setup());
    EXPECT_EQ(mapper.directoryName("anna"), "anna");
    EXPECT_FALSE(root.has(kMap));
    EXPECT_EQ(mapper.directoryName("dom\\anna"), reserved(kDomainUser));
    const Str written = root.read(kMap);
    EXPECT_EQ(written, Str("[contains-uppercase]\r\ndom\\\\anna = ") << kDomainUser << "\r\n");
    // The same user, though the digest of this spelling is another.
    EXPECT_EQ(mapper.directoryName("DOM\\Anna"), reserved(kDomainUser));
    UsernameMapper other(root.setup());
    EXPECT_EQ(other.directoryName("dom\\anna"), reserved(kDomainUser));
    EXPECT_EQ(root.read(kMap), written);
    Str user;
    EXPECT_TRUE(UsernameMapper(root.setup()).trueName(kDomainUser, user));
    EXPECT_EQ(user, "dom\\anna");
    const ConfLog log(root);
    EXPECT_FALSE(other.trueName("x", user));
    EXPECT_EQ(log.text(), "WARN UsernameMapper: No mapping for safe name: ROOT/users/users.ini: x\n");
}

TEST_F(UsernameMapperFile, ReportsWhatFails)
{
    static constexpr struct
    {
        const char *function;
        std::intptr_t result;
        DWORD error;
        const char *log;
    } kFailures[] = {
        {"CreateDirectoryW", 0, ERROR_DISK_FULL,
         "ERROR UsernameMapper: Cannot create directory: ROOT/users: <112>\n"},
        {"CreateFileW", -1, ERROR_ACCESS_DENIED,
         "ERROR UsernameMapper: Cannot create username mapping file: ROOT/users/users.ini: <5>\n"},
    };
    Str user;
    root.shared();
    for (const auto &[function, result, error, told] : kFailures) {
        const FailingCall failing(function, result, error);
        const ConfLog log(root);
        EXPECT_FALSE(UsernameMapper(root.setup()).trueName("x", user));
        EXPECT_EQ(log.text(), Str(told) << "WARN UsernameMapper: Error accessing username mapping file: "
                                        << "ROOT/users/users.ini\n");
    }
    UsernameMapper mapper(root.setup());
    const ConfLog log(root);
    EXPECT_FALSE(mapper.trueName("x", user));
    EXPECT_EQ(log.text(),
              "WARN UsernameMapper: No username mappings present: ROOT/users/users.ini: Missing stanza: "
              "contains-uppercase\n");
    EXPECT_EQ(root.read(kMap), "");
    {
        const FailingCall full("fflush", -1, ERROR_DISK_FULL);
        EXPECT_EQ(mapper.directoryName("con"), "");
    }
    EXPECT_FALSE(mapper.trueName(kCon, user));
    EXPECT_EQ(mapper.directoryName("con"), reserved(kCon));
    for (const char *lost : {"#a:", ";a:", "anna "}) {
        EXPECT_EQ(mapper.directoryName(lost), "") << lost;
    }
}

TEST_F(UsernameMapperFile, SeesWhatAnotherHostRecordsInSharedStorage)
{
    shareStorage(root);
    UsernameMapper mine(root.setup());
    UsernameMapper others(root.setup());
    Str user;
    {
        const ConfLog log(root);
        EXPECT_FALSE(mine.trueName(kCon, user));
        EXPECT_EQ(log.text(),
                  "WARN UsernameMapper: No username mappings present: ROOT/storage/users/users.ini: "
                  "Missing stanza: contains-uppercase\n");
    }
    EXPECT_EQ(others.directoryName("con"), reserved(kCon));
    EXPECT_TRUE(mine.trueName(kCon, user));
    EXPECT_EQ(mine.directoryName("dom\\anna"), reserved(kDomainUser));
    EXPECT_EQ(others.directoryName("aux").size(), reserved(kCon).size());
    EXPECT_TRUE(root.read("storage/users/users.ini").contains(kDomainUser));
    EXPECT_FALSE(root.has(kMap));
}

TEST_F(UsernameMapperFile, StaysInMemoryWhenNothingMayBeWritten)
{
    const ScopedInitSettings scoped(ScopedInitSettings::inMemoryOnly());
    UsernameMapper mapper(root.setup());
    EXPECT_EQ(mapper.directoryName("con"), reserved(kCon));
    Str user;
    EXPECT_TRUE(mapper.trueName(kCon, user));
    EXPECT_EQ(user, "con");
    EXPECT_FALSE(root.has("users"));
}

TEST(UsernameMapperStore, LeadsToTheUsersFilesAndBack)
{
    for (const char *user : {"con", "dom\\anna", "../../apps"}) {
        for (const char *variable : {"$user-case-handler$", "$user$"}) {
            const ConfRoot root(replaced(ConfRoot::shippedBootstrap(), "$user-case-handler$", variable));
            const ConfPath path(root.setup(), ConfPathBase(user, "search", {"x", "s", "k"}));
            ConfPathTrie tree;
            tree.setData("v");
            path.write(tree);
            EXPECT_EQ(root.text(Str("users/")
                                << reserved(UsernameMapper::makeSafeName(user)) << "/search/local/x.conf"),
                      "\n[s]\nk = v\n");
            // What was in memory is gone with the services.
            root.shared().recreate();
            EXPECT_EQ(path.readData(), "v") << user;
        }
    }
}

} // namespace
} // namespace velmox
