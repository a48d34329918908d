#include "conf/conf_path.h"
#include "conf/conf_path_exceptions.h"
#include "tests/conf/conf_root.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

/// What `work` raises, by its text; empty when it raises nothing.
template <class Exception, class Work>
Str raisedBy(Work work)
{
    try {
        work();
        return Str();
    } catch (const Exception &exception) {
        return exception.message();
    }
}

/// A stanza with one key.
ConfPathTrie stanzaOf(const Str &key, const Str &value)
{
    ConfPathTrie stanza;
    stanza.setData("");
    stanza.child(key).setData(value);
    return stanza;
}

ConfPath stanzaPath(const testing::ConfRoot &root, const Str &app, const Str &stanza,
                    const ConfUserContext &identity = {})
{
    return ConfPath(root.setup(), ConfPathBase("", app, {"t", stanza}), identity);
}

Str valueOf(ConfPath path, const Str &key)
{
    path.addPart(key);
    return path.readData();
}

TEST(ConfPath, WritesToOnePlaceAndReadsAllOfThem)
{
    const testing::ConfRoot root;
    root.write("apps\\a\\default\\t.conf", "[s]\nk = default\nother = o\n");
    root.write("apps\\a\\metadata\\default.meta", "[t]\nowner = Olga\nexport = system\n");
    const ConfPath path = stanzaPath(root, "a", "s");
    ConfPathTrie stanza = stanzaOf("k", "local");
    ConfPathMetadata metadata;
    metadata.setOwner("Alice");
    stanza.setMetadata(metadata);
    path.write(stanza);

    EXPECT_EQ(valueOf(path, "k"), "local");
    EXPECT_EQ(valueOf(path, "other"), "o");
    EXPECT_EQ(*path.effectiveMetadata().owner, "alice");
    EXPECT_EQ(path.effectiveMetadata().exported, ConfExport::System);
    EXPECT_TRUE(testing::readWhole(root / "apps\\a\\local\\t.conf").contains("[s]\r\nk = local\r\n"));
    EXPECT_TRUE(testing::readWhole(root / "apps\\a\\metadata\\local.meta").contains("owner = alice"));

    EXPECT_EQ(raisedBy<ConfPathDoesNotExistException>([&] { valueOf(path, "none"); }),
              "Does not exist: /nobody/a/t/s/none");
    const ConfPath type(root.setup(), ConfPathBase("nobody", "a", {"t"}));
    EXPECT_EQ(raisedBy<ConfPathHasNoDataException>([&] { type.readData(); }), "Has no data: /nobody/a/t");
}

TEST(ConfPath, AnEmptyTreeWritesNoFile)
{
    const testing::ConfRoot root;
    root.makeFolder("apps\\a\\default");
    stanzaPath(root, "a", "s").write(ConfPathTrie());
    EXPECT_EQ(pathKind(root / "apps\\a\\local"), PathKind::Nothing);
    EXPECT_EQ(pathKind(root / "apps\\a\\metadata\\local.meta"), PathKind::Nothing);
}

TEST(ConfPath, RefusesNamesThatLeadElsewhere)
{
    const testing::ConfRoot root;
    root.makeFolder("apps\\a\\default");
    struct Case
    {
        ConfPathBase path;
        const char *message;
    };
    const Case cases[] = {
        {{"", "a", {"x/y", "s"}}, "Directory traversal risk in /nobody/a/x/y/s at segment \"x/y\""},
        {{"", "..\\a", {"t", "s"}}, "Directory traversal risk in /nobody/..\\a/t/s at segment \"..\\a\""},
    };
    for (const Case &c : cases) {
        const ConfPath path(root.setup(), c.path);
        EXPECT_EQ(raisedBy<ConfPathDirectoryTraversalException>([&] { path.write(stanzaOf("k", "v")); }),
                  c.message);
        EXPECT_EQ(raisedBy<ConfPathDirectoryTraversalException>([&] { path.remove(); }), c.message);
    }
    EXPECT_EQ(pathKind(root / "apps\\a\\local"), PathKind::Nothing);
    const ConfPath harmless = stanzaPath(root, "a", "monitor://./x\\y");
    harmless.write(stanzaOf("k/l", "v"));
    EXPECT_EQ(valueOf(harmless, "k/l"), "v");
}

TEST(ConfPath, AFailedWriteStillFlushesWhatCameBefore)
{
    const testing::ConfRoot root;
    root.makeFolder("apps\\a\\default");
    const ConfPath path = stanzaPath(root, "a", "s");
    ConfPathTrie stanza = stanzaOf("a", "1");
    stanza.child("b").child("deeper").setData("2");
    stanza.child("c").setData("3");
    EXPECT_TRUE(
        raisedBy<ConfPathWriteDataException>([&] { path.write(stanza); }).contains("/nobody/a/t/s/b/deeper"));
    const Str written = testing::readWhole(root / "apps\\a\\local\\t.conf");
    EXPECT_TRUE(written.endsWith("[s]\r\na = 1\r\n")) << written.c_str();
}

TEST(ConfPath, ALackOfAWriterEndsTheWrite)
{
    const testing::ConfRoot root(
        "[bootstrap]\nsystem/local = conf\n[relative_depth_to_regular_files]\nconf = 1\n"
        "[writes]\ndata:nobody:system:$type$ = system/local\n");
    EXPECT_NE(raisedBy<ConfPathHasNoWriter>([&] { stanzaPath(root, "", "s").write(stanzaOf("k", "v")); }),
              "");
    const Str written = testing::readWhole(root / "system\\local\\t.conf");
    EXPECT_TRUE(written.endsWith("[s]\r\n")) << written.c_str();
    EXPECT_NE(raisedBy<ConfPathHasNoWriter>([&] { stanzaPath(root, "a", "s").write(stanzaOf("k", "v")); }),
              "");
}

TEST(ConfPath, TellsWhichPlaceCouldNotBeFlushed)
{
    const testing::ConfRoot root;
    root.makeFolder("apps\\a\\default");
    // Stands where the file is written before it gets its name.
    root.makeFolder(
        Str::fromFormat("apps\\a\\local\\t.conf.%u.tmp", LoaderInfo::instance()->getPid()).c_str());
    const Str message =
        raisedBy<ConfPathFlushException>([&] { stanzaPath(root, "a", "s").write(stanzaOf("k", "v")); });
    EXPECT_TRUE(message.startsWith("Could not flush changes to disk: /nobody/a/t/s: ConfPathMapper: "))
        << message.c_str();
}

TEST(ConfPath, ChecksRightsBeforeItWritesAnything)
{
    const testing::ConfRoot root;
    root.write("apps\\a\\metadata\\default.meta", "[]\naccess = write : [ power ]\n[t/guarded]\naccess = "
                                                  "write : [ power ], write_metadata : [ boss ]\n");
    root.makeFolder("apps\\a\\default");
    ConfPathTrie restricted = stanzaOf("k", "v");
    ConfPathMetadata metadata;
    metadata.access = ConfAcl::parse("write : [ power, x ]");
    restricted.setMetadata(metadata);
    struct Case
    {
        const char *stanza;
        ConfUserContext identity;
        const ConfPathTrie &tree;
        bool allowed;
    };
    const ConfPathTrie plain = stanzaOf("k", "v");
    const Case cases[] = {
        {"s", {"eve", {"user"}, false}, plain, false},
        {"guarded", {"eve", {"power"}, false}, plain, true},
        {"guarded", {"eve", {"power"}, false}, restricted, false},
        {"guarded", {"eve", {"power", "boss"}, false}, restricted, true},
        {"s", {"eve", {"power"}, false}, restricted, true},
    };
    for (const Case &c : cases) {
        const ConfPath path = stanzaPath(root, "a", c.stanza, c.identity);
        const Str message = raisedBy<ConfPathPermissionDeniedException>([&] { path.write(c.tree); });
        EXPECT_EQ(message.empty(), c.allowed) << c.stanza << ": " << message.c_str();
        if (!c.allowed && &c.tree == &plain) {
            EXPECT_EQ(pathKind(root / "apps\\a\\local"), PathKind::Nothing);
        }
    }
}

TEST(ConfPath, RemovesWhatStandsWhereItWouldWrite)
{
    const testing::ConfRoot root;
    root.write("apps\\a\\default\\t.conf", "[s]\nk = default\n");
    root.write("apps\\a\\local\\t.conf", "[s]\nk = local\nl = local\n[u]\nk = u\n");
    root.write("apps\\a\\metadata\\local.meta", "[t/s]\nowner = olga\n[t/u]\nowner = uwe\n");
    const ConfPath path = stanzaPath(root, "a", "s");
    ConfPath key = path;
    key.addPart("l");
    key.remove();
    EXPECT_EQ(valueOf(path, "k"), "local");
    EXPECT_NE(raisedBy<ConfPathDoesNotExistException>([&] { key.remove(); }), "");

    EXPECT_NE(raisedBy<ConfPathPermissionDeniedException>([&] {
                  stanzaPath(root, "a", "s", {"eve", {}, false}).remove();
              }),
              "");
    path.remove();
    EXPECT_EQ(valueOf(path, "k"), "default");
    EXPECT_EQ(path.effectiveMetadata().owner, nullptr);
    EXPECT_FALSE(testing::readWhole(root / "apps\\a\\local\\t.conf").contains("[s]"));
    EXPECT_EQ(valueOf(stanzaPath(root, "a", "u"), "k"), "u");
    EXPECT_EQ(*stanzaPath(root, "a", "u").effectiveMetadata().owner, "uwe");
}

} // namespace
} // namespace velmox
