#include "conf/ground/conf_path_exceptions.h"
#include "conf/tree/stanza_expansion.h"
#include "tests/conf/conf_root.h"
#include "tests/support/failing_call.h"
#include "util/system/environment.h"

namespace velmox {
namespace {

using namespace testing;

constexpr char kFile[] = "apps/a/local/t.conf";
constexpr char kMeta[] = "apps/a/metadata/local.meta";

/// A stanza with one key.
ConfPathTrie stanzaOf(const Str &key, const Str &value)
{
    ConfPathTrie stanza;
    stanza.setData("");
    stanza.child(key).setData(value);
    return stanza;
}

ConfPathMetadata owned(const char *name)
{
    ConfPathMetadata metadata;
    metadata.setOwner(name);
    return metadata;
}

TEST(ConfPath, WritesToOnePlaceAndReadsAllOfThem)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk = default\nother = o\n");
    root.write("apps/a/metadata/default.meta", "[t]\nowner = Olga\nexport = system\n");
    const ConfPath stanza = root.at("/nobody/a/t/s");
    stanza.write(ConfPathTrie());
    EXPECT_FALSE(root.has("apps/a/local"));
    EXPECT_FALSE(root.has(kMeta));
    ConfPathTrie tree = stanzaOf("k", "local");
    tree.setMetadata(owned("Alice"));
    stanza.write(tree);
    EXPECT_EQ(root.at("/nobody/a/t/s/k").readData(), "local");
    EXPECT_EQ(root.at("/nobody/a/t/s/other").readData(), "o");
    EXPECT_EQ(*stanza.effectiveMetadata().owner, "alice");
    EXPECT_EQ(stanza.effectiveMetadata().exported, ConfExport::System);
    EXPECT_EQ(root.text(kFile), "\n[s]\nk = local\n");
    EXPECT_EQ(root.text(kMeta), "[t/s]\nowner = alice\n");
    EXPECT_EQ(raisedBy<ConfPathDoesNotExistException>([&] { root.at("/nobody/a/t/s/none").readData(); }),
              "Does not exist: /nobody/a/t/s/none");
    EXPECT_EQ(raisedBy<ConfPathHasNoDataException>([&] { root.at("/nobody/a/t").readData(); }),
              "Has no data: /nobody/a/t");
}

TEST(ConfPath, RefusesNamesThatLeadElsewhere)
{
    const ConfRoot root;
    root.makeFolder("apps/a/default");
    const struct
    {
        ConfPathBase path;
        const char *message;
    } cases[] = {
        {{"", "a", {"x/y", "s"}}, "Directory traversal risk in /nobody/a/x/y/s at segment \"x/y\""},
        {{"", "..\\a", {"t", "s"}}, "Directory traversal risk in /nobody/..\\a/t/s at segment \"..\\a\""},
        {{"", "a", {"t", "s", "k\\l"}}, "Directory traversal risk in /nobody/a/t/s/k\\l at segment \"k\\l\""},
    };
    for (const auto &[base, message] : cases) {
        const ConfPath path(root.setup(), base);
        EXPECT_EQ(raisedBy<ConfPathDirectoryTraversalException>([&] { path.write(stanzaOf("k", "v")); }),
                  message);
        EXPECT_EQ(raisedBy<ConfPathDirectoryTraversalException>([&] { path.remove(); }), message);
    }
    EXPECT_FALSE(root.has("apps/a/local"));
    ConfPath harmless(root.setup(), ConfPathBase("", "a", {"t", "monitor://./x\\y"}));
    harmless.write(stanzaOf("k", "v"));
    EXPECT_EQ(raisedBy<ConfPathDirectoryTraversalException>([&] { harmless.write(stanzaOf("k/l", "w")); }),
              "Directory traversal risk in /nobody/a/t/monitor://./x\\y/k/l at segment \"k/l\"");
    EXPECT_EQ(root.text(kFile), "\n[monitor://./x\\y]\nk = v\n");
}

TEST(ConfPath, ReportsTheFirstFailureAndFlushesWhatCameBefore)
{
    const ConfRoot root("[bootstrap]\napps/*/local = conf\napps/*/metadata/local.meta = confdb\n"
                        "[writes]\ndata:nobody:a:$type$ = apps/a/local\nmeta:nobody:a:$type$ = apps/a/local\n"
                        "meta:nobody:b:$type$ = apps/b/metadata/local.meta\n");
    root.makeFolder("apps/a/local");
    const ConfPath path = root.at("/nobody/a/t/s");
    ConfPathTrie stanza = stanzaOf("a", "1");
    stanza.child("b").child("deeper").setData("2");
    stanza.child("c").setData("3");
    // Metadata goes to a place where none can be kept.
    stanza.setMetadata(owned("o"));
    EXPECT_EQ(raisedBy<ConfPathWriteMetadataException>([&] { path.write(stanza); }),
              Str("Could not write metadata: /nobody/a/t/s: ConfPathMapper: ")
                  << (root / "apps/a/local").toStr());
    EXPECT_EQ(root.text(kFile), "\n[s]\n");
    EXPECT_EQ(raisedBy<ConfPathHasNoWriter>([&] { root.at("/nobody/b/t/s").write(stanza); }),
              Str("Could not find writer for: /nobody/b/t/s [0] [data:nobody:b:t]"));

    const ConfRoot shipped;
    shipped.makeFolder("apps/a/default");
    const ConfPath other = shipped.at("/nobody/a/t/s");
    EXPECT_EQ(raisedBy<ConfPathWriteDataException>([&] { other.write(stanza); }),
              Str("Could not write data: /nobody/a/t/s/b/deeper: ConfPathMapper: ")
                  << (shipped / "apps/a/local").toStr());
    EXPECT_EQ(shipped.text(kFile), "\n[s]\na = 1\n");
    // The failure to write is the one that is told.
    const FailingCall full("MoveFileExW", FALSE, ERROR_DISK_FULL, 0, 10);
    EXPECT_NE(raisedBy<ConfPathWriteDataException>([&] { other.write(stanza); }), "nothing");
    EXPECT_EQ(raisedBy<ConfPathFlushException>([&] { other.write(stanzaOf("k", "v")); }),
              Str("Could not flush changes to disk: /nobody/a/t/s: ConfPathMapper: ")
                  << (shipped / "apps/a/local").toStr());
    EXPECT_EQ(raisedBy<ConfPathFlushException>([&] { shipped.at("/nobody/a/t/s/a").remove(); }),
              Str("Could not commit removal to disk: /nobody/a/t/s/a: ConfPathMapper: ")
                  << (shipped / "apps/a/local").toStr());
}

TEST(ConfPath, ChecksRightsBeforeItWritesAnything)
{
    const ConfRoot root;
    root.write("apps/a/metadata/default.meta", "[]\naccess = write : [ power ]\n[t/guarded]\n"
                                               "access = write : [ power ], write_metadata : [ boss ]\n");
    root.makeFolder("apps/a/default");
    const struct
    {
        const char *stanza;
        ConfUserContext identity;
        bool restricts, allowed;
    } cases[] = {
        {"s", {"eve", {"user"}, false}, false, false},
        {"guarded", {"eve", {"power"}, false}, false, true},
        {"guarded", {"eve", {"power"}, false}, true, false},
        {"guarded", {"eve", {"power", "boss"}, false}, true, true},
        {"s", {"eve", {"power"}, false}, true, true},
    };
    for (const auto &[name, identity, restricts, allowed] : cases) {
        const bool hadFile = root.has(kFile);
        ConfPathTrie tree = stanzaOf("k", "v");
        if (restricts) {
            ConfPathMetadata metadata;
            metadata.access = ConfAcl::parse("write : [ power, x ]");
            tree.setMetadata(metadata);
        }
        const ConfPath path = root.at(Str("/nobody/a/t/") << name, identity);
        EXPECT_EQ(raisedBy<ConfPathPermissionDeniedException>([&] { path.write(tree); }) == "nothing",
                  allowed)
            << name;
        EXPECT_EQ(root.has(kFile), hadFile || allowed);
    }
}

TEST(ConfPath, RemovesWhatStandsWhereItWouldWrite)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk = default\n");
    root.write(kFile, "[s]\nk = local\nl = local\n[u]\nk = u\n");
    root.write(kMeta, "[t/s]\nowner = olga\n[t/u]\nowner = uwe\n");
    const ConfPath key = root.at("/nobody/a/t/s/l");
    key.remove();
    EXPECT_EQ(root.at("/nobody/a/t/s/k").readData(), "local");
    EXPECT_EQ(raisedBy<ConfPathDoesNotExistException>([&] { key.remove(); }),
              "Does not exist: /nobody/a/t/s/l");
    EXPECT_NE(raisedBy<ConfPathPermissionDeniedException>([&] {
                  root.at("/nobody/a/t/s", {"eve", {}, false}).remove();
              }),
              "nothing");
    {
        // What cannot be read cannot be removed from.
        const FailingCall held("CreateFileW", -1, ERROR_SHARING_VIOLATION, 0, 10);
        EXPECT_TRUE(raisedBy<ConfPathWriteException>([&] {
                        root.at("/nobody/a/t/s").remove();
                    }).startsWith("Could not remove: /nobody/a/t/s/k: ConfPathMapper: "));
    }
    root.at("/nobody/a/t/s").remove();
    EXPECT_EQ(root.at("/nobody/a/t/s/k").readData(), "default");
    EXPECT_EQ(root.text(kFile), "[u]\nk = u\n");
    EXPECT_EQ(root.text(kMeta), "[t/u]\nowner = uwe\n");
}

TEST(StanzaExpansion, MakesRelativePathsAbsolute)
{
    setEnvironmentVariable(u"VELMOX_TEST_NAME", u"v\u00E9$VELMOX_TEST_NAME");
    setEnvironmentVariable(u"VELMOX_TEST_UNSET", u"");
    static constexpr const char *kCases[][2] = {
        {"monitor://./logs", "monitor://C:\\app/logs"},
        {"monitor://.\\logs", "monitor://C:\\app\\logs"},
        {"monitor://\\logs", "monitor://C:\\applogs"},
        {"a://b://.", "a://b://C:\\app"},
        {"monitor://./$VELMOX_TEST_NAME/%VELMOX_TEST_NAME%${VELMOX_TEST_NAME}",
         "monitor://C:\\app/v\u00E9$VELMOX_TEST_NAME/v\u00E9$VELMOX_TEST_NAMEv\u00E9$VELMOX_TEST_NAME"},
        {"x://./$VELMOX_TEST_UNSET $ %% %VELMOX_TEST_NAME ${VELMOX_TEST_NAME",
         "x://C:\\app/$VELMOX_TEST_UNSET $ %% %VELMOX_TEST_NAME ${VELMOX_TEST_NAME"},
        {"monitor:///$VELMOX_TEST_NAME", ""},
        {"monitor://", ""},
        {"./logs", ""},
    };
    for (const auto &[name, expansion] : kCases) {
        EXPECT_EQ(stanzaExpansion(name, Pathname(u"C:\\app")), expansion) << name;
    }
}

} // namespace
} // namespace velmox
