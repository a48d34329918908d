#include "conf/conf_path.h"
#include "conf/setup/shared_conf_services.h"
#include "conf/setup/username_mapper.h"
#include "tests/conf/conf_root.h"
#include "tests/support/captured_log.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ConfRoot;
using testing::lockOpen;
using testing::readWhole;
using testing::ScopedInitSettings;

// Digests of the names, as any MD5 program gives them.
constexpr char kCon[] = "_con.7ed201fa20d25d22b291dc85ae9e5ced";
constexpr char kDomainUser[] = "dom_anna.d8a4ff53c4bf5528cd8a6100b1435ef3";

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
    ConfRoot root{""};
    Pathname map = root / "users\\users.ini";
};

TEST_F(UsernameMapperFile, RecordsANameOnceForAllWhoAsk)
{
    const BundlesSetup setup = root.setup();
    UsernameMapper mapper(setup);
    EXPECT_EQ(mapper.directoryName("anna"), "anna");
    EXPECT_EQ(pathKind(map), PathKind::Nothing);

    EXPECT_EQ(mapper.directoryName("dom\\anna"), Str("_reserved/") << kDomainUser);
    const Str written = readWhole(map);
    EXPECT_EQ(written, Str("[contains-uppercase]\r\ndom\\\\anna = ") << kDomainUser << "\r\n");
    // The same user, though the digest of this spelling is another.
    EXPECT_EQ(mapper.directoryName("DOM\\Anna"), Str("_reserved/") << kDomainUser);
    EXPECT_EQ(UsernameMapper(setup).directoryName("dom\\anna"), Str("_reserved/") << kDomainUser);
    EXPECT_EQ(readWhole(map), written);

    UsernameMapper other(setup);
    Str user;
    EXPECT_TRUE(other.trueName(kDomainUser, user));
    EXPECT_EQ(user, "dom\\anna");
    CapturedLog log;
    EXPECT_FALSE(other.trueName("x", user));
    EXPECT_EQ(log.text(), Str("WARN UsernameMapper: No mapping for safe name: ") << map.toStr() << ": x\n");
}

TEST_F(UsernameMapperFile, ReportsWhatFails)
{
    const BundlesSetup setup = root.setup();
    UsernameMapper mapper(setup);
    Str user;
    {
        CapturedLog log;
        EXPECT_FALSE(mapper.trueName("x", user));
        EXPECT_EQ(log.text(), Str("WARN UsernameMapper: No username mappings present: ")
                                  << map.toStr() << ": Missing stanza: contains-uppercase\n");
        EXPECT_EQ(readWhole(map), "");
    }
    {
        const FileHandle held = lockOpen(map);
        CapturedLog log;
        EXPECT_EQ(mapper.directoryName("con"), "");
        EXPECT_TRUE(log.text().contains(Str("ERROR UsernameMapper: Error flushing username mapping to file: ")
                                        << map.toStr() << ": con = " << kCon << "\n"))
            << log.text().view();
    }
    EXPECT_FALSE(mapper.trueName(kCon, user));
    EXPECT_EQ(mapper.directoryName("con"), Str("_reserved/") << kCon);
    for (const char *lost : {"#a:", ";a:", "anna "}) {
        EXPECT_EQ(mapper.directoryName(lost), "") << lost;
    }

    const ConfRoot blocked("");
    blocked.write("users", "");
    CapturedLog log;
    EXPECT_EQ(UsernameMapper(blocked.setup()).directoryName("con"), "");
    EXPECT_TRUE(log.text().contains("ERROR UsernameMapper: Cannot create directory: ")) << log.text().view();
    EXPECT_TRUE(log.text().contains("ERROR UsernameMapper: Error accessing username mapping file: "));
}

TEST_F(UsernameMapperFile, SeesWhatAnotherHostRecordsInSharedStorage)
{
    root.makeFolder("storage\\apps");
    root.write("system\\default\\server.conf", Str("[pooling]\nstate = enabled\nstorage = ")
                                                   << (root / "storage").toStr() << "\n");
    const BundlesSetup setup = root.setup();
    UsernameMapper mine(setup);
    UsernameMapper others(setup);
    Str user;
    {
        CapturedLog log;
        EXPECT_FALSE(mine.trueName(kCon, user));
        EXPECT_EQ(log.text(), Str("WARN UsernameMapper: No username mappings present: ")
                                  << (root / "storage\\users\\users.ini").toStr()
                                  << ": Missing stanza: contains-uppercase\n");
    }
    EXPECT_EQ(others.directoryName("con"), Str("_reserved/") << kCon);
    EXPECT_TRUE(mine.trueName(kCon, user));
    EXPECT_EQ(mine.directoryName("dom\\anna"), Str("_reserved/") << kDomainUser);
    EXPECT_EQ(others.directoryName("aux").size(), Str("_reserved/").append(kCon).size());
    EXPECT_TRUE(readWhole(root / "storage\\users\\users.ini").contains(kDomainUser));
    EXPECT_EQ(pathKind(map), PathKind::Nothing);
}

TEST_F(UsernameMapperFile, StaysInMemoryWhenNothingMayBeWritten)
{
    InitSettings settings;
    settings.inMemoryOnly = true;
    const ScopedInitSettings inMemoryOnly(settings);
    UsernameMapper mapper(root.setup());
    EXPECT_EQ(mapper.directoryName("con"), Str("_reserved/") << kCon);
    Str user;
    EXPECT_TRUE(mapper.trueName(kCon, user));
    EXPECT_EQ(user, "con");
    EXPECT_EQ(pathKind(root / "users"), PathKind::Nothing);
}

TEST(UsernameMapperStore, LeadsToTheUsersFilesAndBack)
{
    const ConfRoot root;
    for (const char *user : {"con", "dom\\anna", "../../apps"}) {
        const ConfPath path(root.setup(), ConfPathBase(user, "search", {"x", "s", "k"}));
        ConfPathTrie tree;
        tree.setData("v");
        path.write(tree);
        const Str file = Str("users\\_reserved\\")
                         << UsernameMapper::makeSafeName(user) << "\\search\\local\\x.conf";
        EXPECT_TRUE(readWhole(root / file.c_str()).contains("[s]\r\nk = v\r\n")) << user;
        // What was in memory is gone with the services.
        root.setup().shared().recreate();
        EXPECT_EQ(path.readData(), "v") << user;
    }
}

} // namespace
} // namespace velmox
