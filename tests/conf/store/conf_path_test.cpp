#include "conf/ground/conf_exceptions.h"
#include "conf/tree/stanza_expansion.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

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
    for (const ConfPathBase &base :
         {ConfPathBase("", "a", {"x/y", "s"}), ConfPathBase("", "..\\a", {"t", "s"}),
          ConfPathBase("", "a", {"t", "s", "k\\l"})}) {
        const ConfPath path(root.shared().mappers(), base);
        EXPECT_THROW(path.write(stanzaOf("k", "v")), ConfPathDirectoryTraversalException);
        EXPECT_THROW(path.remove(), ConfPathDirectoryTraversalException);
    }
    EXPECT_FALSE(root.has("apps/a/local"));
    ConfPath harmless(root.shared().mappers(), ConfPathBase("", "a", {"t", "monitor://./x\\y"}));
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
    EXPECT_TRUE(raisedBy<ConfPathWriteMetadataException>([&] {
                    path.write(stanza);
                }).startsWith("Could not write metadata: /nobody/a/t/s: ConfPathMapper: "));
    EXPECT_EQ(root.text(kFile), "\n[s]\n");
    EXPECT_THROW(root.at("/nobody/b/t/s").write(stanza), ConfPathHasNoWriter);

    const ConfRoot shipped;
    shipped.makeFolder("apps/a/default");
    const ConfPath other = shipped.at("/nobody/a/t/s");
    EXPECT_TRUE(raisedBy<ConfPathWriteDataException>([&] {
                    other.write(stanza);
                }).startsWith("Could not write data: /nobody/a/t/s/b/deeper: ConfPathMapper: "));
    EXPECT_EQ(shipped.text(kFile), "\n[s]\na = 1\n");
    // The failure to write is the one that is told.
    const FailingCall full("MoveFileExW", FALSE, ERROR_DISK_FULL, 0, 10);
    EXPECT_NE(raisedBy<ConfPathWriteDataException>([&] { other.write(stanza); }), "nothing");
    EXPECT_THROW(other.write(stanzaOf("k", "v")), ConfPathFlushException);
    EXPECT_THROW(shipped.at("/nobody/a/t/s/a").remove(), ConfPathFlushException);
}

TEST(ConfPath, ChecksRightsBeforeItWritesAnything)
{
    const ConfRoot root;
    root.write("apps/a/metadata/default.meta", "[]\naccess = write : [ power ]\n[t/guarded]\n"
                                               "access = write : [ power ], write_metadata : [ boss ]\n");
    root.makeFolder("apps/a/default");
    const auto mayWrite = [&](const char *stanza, std::set<Str> roles, bool restricts) {
        ConfPathTrie tree = stanzaOf("k", "v");
        if (restricts) {
            ConfPathMetadata metadata;
            metadata.access = ConfAcl::parse("write : [ power, x ]");
            tree.setMetadata(metadata);
        }
        const ConfPath path = root.at(Str("/nobody/a/t/") << stanza, {"eve", roles, false});
        return raisedBy<ConfPathPermissionDeniedException>([&] { path.write(tree); }) == "nothing";
    };
    EXPECT_FALSE(mayWrite("s", {"user"}, false));
    EXPECT_FALSE(root.has(kFile));
    EXPECT_TRUE(mayWrite("guarded", {"power"}, false));
    EXPECT_FALSE(mayWrite("guarded", {"power"}, true));
    EXPECT_TRUE(mayWrite("guarded", {"power", "boss"}, true));
    EXPECT_TRUE(mayWrite("s", {"power"}, true));
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
    const ScopedVariable name(u"VELMOX_TEST_NAME", u"v\u00E9$VELMOX_TEST_NAME");
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
        {"./logs", ""},
    };
    for (const auto &[stanza, expansion] : kCases) {
        EXPECT_EQ(stanzaExpansion(stanza, Pathname(u"C:\\app")), expansion) << stanza;
    }
}

} // namespace
} // namespace velmox
