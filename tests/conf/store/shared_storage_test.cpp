#include "conf/ground/conf_exceptions.h"
#include "conf/root/sentinel_scope.h"
#include "conf/root/username_mapper.h"
#include "searchthing/lock.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

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
        const SentinelScope scope(alone.setup(), alone.shared().settings(), "nothing");
        EXPECT_FALSE(alone.has("apps"));
    }
    const ConfRoot root;
    shareStorage(root, "lock.timeout = 1ms\nlock.logging = 1\npoll.interval.rebuild = 20s\n");
    const BundlesSetup setup = root.setup();
    const Pathname sentinel = setup.sentinelFile();
    {
        const SentinelScope scope(setup, root.shared().settings(), "outer");
        const SentinelScope nested(setup, root.shared().settings(), "nested");
        EXPECT_EQ(lockFileExists(sentinel), LockState::Exists);
        EXPECT_TRUE(root.text("storage/apps/sentinel.txt").endsWith(": outer\n"));
    }
    EXPECT_EQ(lockFileExists(sentinel), LockState::Absent);

    ASSERT_EQ(lockFileTry(sentinel), LockTry::Taken);
    const std::uint64_t start = GetTickCount64();
    EXPECT_TRUE(raisedBy<ConfPathException>([&] {
                    SentinelScope(setup, root.shared().settings(), "refused");
                }).contains(" with code 1, possible reason: "));
    EXPECT_LT(GetTickCount64() - start, 15'000u) << "lock.timeout, and no other interval";
    EXPECT_EQ(lockFileRelease(sentinel), LockRelease::Done);
    // A note that cannot be made, and a lock that cannot be taken off, are told and keep nobody from writing.
    const ConfLog log(root);
    {
        const FailingCall noNote("CreateFileW", -1, ERROR_DISK_FULL, 1);
        const FailingCall noRelease("DeleteFileW", FALSE, ERROR_SHARING_VIOLATION);
        const SentinelScope scope(setup, root.shared().settings(), "silent");
    }
    expectInOrder(log.text(), {": Cannot note a write in ", ": Cannot release the lock of "});
    EXPECT_EQ(lockFileRelease(sentinel), LockRelease::Done);
}

TEST(SentinelScope, LocksNothingWhenItFindsNoMemory)
{
    const ConfRoot root;
    shareStorage(root, "lock.logging = 1\n");
    const BundlesSetup setup = root.setup();
    const ConfSettings &settings = root.shared().settings();
    bool isExhausted = true;
    for (int passed = 0; isExhausted; ++passed) {
        std::optional<SentinelScope> scope;
        {
            const FailingCall noMemory("malloc", 0, ERROR_NOT_ENOUGH_MEMORY, passed);
            try {
                scope.emplace(setup, settings, "in vain");
            } catch (const std::bad_alloc &) {
            }
            isExhausted = noMemory.failed() != 0;
        }
        EXPECT_EQ(lockFileExists(setup.sentinelFile()), scope ? LockState::Exists : LockState::Absent)
            << passed;
    }
}

TEST(UsernameMapper, MakesSafeNames)
{
    for (const char *const name : {"anna", "Anna B", "a.b"}) {
        EXPECT_FALSE(UsernameMapper::needsMapping(name)) << name;
    }
    // Up to the digest.
    constexpr std::pair<const char *, const char *> kSafe[] = {
        {"DOM\\Anna", "dom_anna."}, {"anna.", "_anna.."}, {"<>:\"/\\|?*", "_________."},
        {"NUL.x", "_nul.x."},       {"..", "_..."},       {"\xC3\x84:", "\xC3\xA4_."}};
    for (const auto &[name, safe] : kSafe) {
        EXPECT_TRUE(UsernameMapper::needsMapping(name)) << name;
        const Str made = UsernameMapper::makeSafeName(name);
        EXPECT_TRUE(made.startsWith(safe)) << made.view();
        EXPECT_EQ(made.size(), std::string_view(safe).size() + 32) << made.view();
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
    UsernameMapper mapper(root.setup(), root.shared().settings());
    EXPECT_EQ(mapper.directoryName("anna"), "anna");
    EXPECT_FALSE(root.has(kMap));
    EXPECT_EQ(mapper.directoryName("dom\\anna"), reserved(kDomainUser));
    const Str written = root.read(kMap);
    EXPECT_EQ(written, Str("[contains-uppercase]\r\ndom\\\\anna = ") << kDomainUser << "\r\n");
    // The same user, though the digest of this spelling is another.
    EXPECT_EQ(mapper.directoryName("DOM\\Anna"), reserved(kDomainUser));
    UsernameMapper other(root.setup(), root.shared().settings());
    EXPECT_EQ(other.directoryName("dom\\anna"), reserved(kDomainUser));
    EXPECT_EQ(root.read(kMap), written);
    Str user;
    EXPECT_TRUE(UsernameMapper(root.setup(), root.shared().settings()).trueName(kDomainUser, user));
    EXPECT_EQ(user, "dom\\anna");
    const ConfLog log(root);
    EXPECT_FALSE(other.trueName("x", user));
    EXPECT_EQ(log.text(), "WARN UsernameMapper: No mapping for safe name: ROOT/users/users.ini: x\n");
}

TEST_F(UsernameMapperFile, ReportsWhatFails)
{
    Str user;
    UsernameMapper mapper(root.setup(), root.shared().settings());
    const ConfLog log(root);
    EXPECT_FALSE(mapper.trueName("x", user));
    EXPECT_TRUE(log.text().contains("No username mappings present: ROOT/users/users.ini: Missing stanza: "));
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
    UsernameMapper mine(root.setup(), root.shared().settings());
    UsernameMapper others(root.setup(), root.shared().settings());
    Str user;
    EXPECT_FALSE(mine.trueName(kCon, user));
    EXPECT_EQ(others.directoryName("con"), reserved(kCon));
    EXPECT_TRUE(mine.trueName(kCon, user));
    EXPECT_EQ(mine.directoryName("dom\\anna"), reserved(kDomainUser));
    EXPECT_TRUE(root.read("storage/users/users.ini").contains(kDomainUser));
    EXPECT_FALSE(root.has(kMap));
}

TEST(UsernameMapperStore, LeadsToTheUsersFilesAndBack)
{
    for (const char *user : {"con", "dom\\anna", "../../apps"}) {
        for (const char *variable : {"$user-case-handler$", "$user$"}) {
            const ConfRoot root(replaced(ConfRoot::shippedBootstrap(), "$user-case-handler$", variable));
            const ConfPath path(root.shared().mappers(), ConfPathBase(user, "search", {"x", "s", "k"}));
            ConfPathTrie tree;
            tree.setData("v");
            path.write(tree);
            EXPECT_EQ(root.text(Str("users/")
                                << reserved(UsernameMapper::makeSafeName(user)) << "/search/local/x.conf"),
                      "\n[s]\nk = v\n");
            for (IConfPathMapper *const mapper : root.shared().mappers().mappers()) {
                mapper->reload("");
            }
            EXPECT_EQ(path.readData(), "v") << user;
        }
    }
}

} // namespace
} // namespace velmox
