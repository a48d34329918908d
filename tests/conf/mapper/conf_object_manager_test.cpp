#include "conf/ground/conf_exceptions.h"
#include "conf/ground/conf_lock.h"
#include "conf/mapper/conf_object_manager.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

constexpr char kLocal[] = "apps/search/metadata/local.meta";
constexpr char kDefault[] = "apps/search/metadata/default.meta";

ConfPathMetadata owned(const char *name)
{
    ConfPathMetadata metadata;
    metadata.setOwner(name);
    return metadata;
}

/// Addresses are those below the app "search": "/type/stanza".
class ConfObjectManagerTest : public ::testing::Test
{
protected:
    ConfPath at(const Str &address) const { return root.at(Str("/nobody/search") << address); }
    ConfObjectManager &mapper(const char *file = kLocal) const
    {
        return dynamic_cast<ConfObjectManager &>(root.mapperOf(file));
    }
    Str metadataAt(const Str &address) const
    {
        try {
            return at(address).readMetadata().toStr();
        } catch (const ConfPathException &exception) {
            return exception.what();
        }
    }
    void write(const Str &address, const ConfPathMetadata &metadata) const
    {
        ConfPathTrie tree;
        tree.setMetadata(metadata);
        at(address).write(tree);
    }

    const ConfRoot root;
};

TEST_F(ConfObjectManagerTest, CompletesLocalMetadataByThatOfTheDefaultLayer)
{
    root.write(kLocal, "[inputs]\nowner = anna\n[/bert/other/inputs]\nexport = none\n");
    root.write(kDefault, "[]\nexport = system\n[inputs]\nowner = system\naccess = read : [ * ]\n");
    EXPECT_EQ(metadataAt("/inputs"), "{ read : [ * ] }, owner: anna");
    EXPECT_EQ(metadataAt(""), "{  }, export: global");
    EXPECT_EQ(metadataAt("/outputs"), "Does not exist: /nobody/search/outputs");
    EXPECT_EQ(at("/inputs/x").effectiveMetadata().toStr(), "{ read : [ * ] }, export: global, owner: anna");
    ConfPathTrie other;
    root.at("/Bert/other").read(other);
    EXPECT_TRUE(other.find(root.at("/bert/other/inputs")));

    ConfSearch search;
    search.constrain(ConfSearch::User, "Nobody");
    search.constrain(ConfSearch::Type, "inputs");
    search.setMaxLevel(kAppLevel);
    ConfPathTrie found;
    EXPECT_FALSE(mapper().search(search, found));
    EXPECT_TRUE(found.empty());
    EXPECT_TRUE(mapper(kDefault).search(search, found));
    search.setMaxLevel(ConfPathTrie::kAllLevels);
    EXPECT_TRUE(mapper().search(search, found));
    Str text;
    found.dump(&text);
    EXPECT_EQ(text, "nobody\n  search {  }, export: global\n    inputs {  }, owner: anna\n");
}

TEST_F(ConfObjectManagerTest, WritesOnlyWhatDiffersAndKeepsTheRestOfTheFile)
{
    const char before[] =
        "# head\n\n[inputs]\n# who\nowner = anna\nversion = 7\n\n[inputs/a%2Fb]\nexport = app\n# tail\n";
    const ConfPath slashed(root.shared().mappers(), ConfPathBase("nobody", "search", {"inputs", "a/b"}));
    root.write(kLocal, before);
    {
        const ConfLog log(root);
        write("/inputs", {});
        write("/inputs", owned("Anna"));
        mapper().remove(at("/absent"));
        EXPECT_TRUE(mapper().flush());
        EXPECT_FALSE(log.text().contains("Renamed"));
    }
    EXPECT_EQ(root.read(kLocal), before);

    write("/inputs", owned("Bert"));
    ConfPathMetadata metadata;
    metadata.access = ConfAcl::parse("read : [ * ]");
    metadata.exported = ConfExport::System;
    EXPECT_TRUE(mapper().writeMetadata(slashed, metadata));
    EXPECT_TRUE(mapper().writeData(at("/inputs/new/key"), "value"));
    EXPECT_THROW(at("/inputs/new/key").readData(), ConfPathDoesNotExistException);
    EXPECT_TRUE(mapper().flush());
    const Str kept = "# head\n\n[inputs]\n# who\nowner = bert\nversion = 7\n\n[inputs/";
    EXPECT_EQ(root.read(kLocal), Str(kept) << "a%2Fb]\nexport = system\naccess = read : [ * ]\n\n"
                                           << "[inputs/new/key]\ndata = value\n# tail\n");
    EXPECT_EQ(slashed.readMetadata().toStr(), "{ read : [ * ] }, export: global");
    EXPECT_EQ(at("/inputs/new/key").readData(), "value");
    EXPECT_TRUE(mapper().remove(slashed));
    EXPECT_TRUE(mapper().writeData(at("/inputs/new/key"), ""));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(root.read(kLocal), Str(kept) << "new/key]\n# tail\n");
    EXPECT_TRUE(mapper().remove(at("/inputs")));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(root.read(kLocal), "# head\n\n# tail\n");
    EXPECT_EQ(metadataAt("/inputs"), "Does not exist: /nobody/search/inputs");
}

TEST_F(ConfObjectManagerTest, MakesAFileForTheFirstMetadataAndNotBefore)
{
    at("/inputs/x").write(ConfPathTrie());
    EXPECT_TRUE(mapper().remove(at("/inputs/x")));
    EXPECT_TRUE(mapper().flush());
    EXPECT_FALSE(root.has("apps"));
    ConfPathMetadata metadata = owned("anna");
    metadata.removable = true;
    write("/inputs/x y", metadata);
    EXPECT_EQ(root.read(kLocal), "[inputs/x%20y]\r\nowner = anna\r\n");
}

TEST_F(ConfObjectManagerTest, TakesUpWhatAnotherProcessWrote)
{
    root.write(kLocal, "[a]\nowner = anna\n");
    EXPECT_EQ(metadataAt("/a"), "{  }, owner: anna");
    root.write(kLocal, "[a]\nowner = somebody else\n[b]\nowner = bert\n");
    EXPECT_EQ(metadataAt("/a"), "{  }, owner: anna");
    write("/a", owned("anna"));
    EXPECT_EQ(root.read(kLocal), "[a]\nowner = anna\n\n[b]\nowner = bert\n");
    EXPECT_EQ(metadataAt("/b"), "{  }, owner: bert");
    // Of two spellings of an address the later one has the say.
    root.write(kLocal, "[a+b]\nowner = anna\n[a%20b]\nowner = bert\n");
    write("/a b", owned("chris"));
    EXPECT_EQ(root.read(kLocal), "[a+b]\nowner = anna\n\n[a%20b]\nowner = chris\n");
}

TEST_F(ConfObjectManagerTest, ReadsAFileAgainThatCouldNotBeRead)
{
    root.write(kLocal, "[a]\nowner = anna\n");
    {
        const FileHandle held(
            CreateFileW(asWide(root / kLocal), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(metadataAt("/a"), "Does not exist: /nobody/search/a");
    }
    EXPECT_EQ(noticeChange(mapper(), root / kLocal), FileChangeAnswer::Settled);
    EXPECT_EQ(metadataAt("/a"), "{  }, owner: anna");
}

TEST_F(ConfObjectManagerTest, FollowsNoticesOfChanges)
{
    root.write(kLocal, "[a]\nowner = anna\n[b]\nowner = anna\n");
    ConfObjectManager &manager = mapper();
    const auto notice = [&](const char *file, FileChangeAnswer answer) {
        const ConfLog log(root);
        EXPECT_EQ(noticeChange(manager, root / file), answer);
        return log.told();
    };
    const auto typesChanged = [&, a = manager.newState(), b = manager.newState()] {
        return std::pair(manager.hasChangedSince("a", *a), manager.hasChangedSince("b", *b));
    };
    EXPECT_TRUE(
        notice(kDefault, FileChangeAnswer::Settled).contains(": Received change notification for unrelated"));
    root.write(kLocal, "# only a comment\n[b]\nowner = Anna\nmodtime = 9\n[a]\nowner = anna\n");
    EXPECT_TRUE(notice(kLocal, FileChangeAnswer::NoChange).endsWith(": self-generated\n"));
    EXPECT_EQ(typesChanged(), std::pair(false, false));
    root.write(kLocal, "[a]\nowner = bert\n[b]\nowner = anna\n");
    EXPECT_TRUE(notice(kLocal, FileChangeAnswer::Settled).contains(": Detected change to ROOT/apps"));
    EXPECT_EQ(typesChanged(), std::pair(true, false));
    EXPECT_EQ(typesChanged(), std::pair(false, false));

    EXPECT_TRUE(manager.writeMetadata(at("/b"), owned("chris")));
    removeFile(root / kLocal);
    notice(kLocal, FileChangeAnswer::NoChange);
    EXPECT_FALSE(manager.reload(Str())) << "outstanding write";
    EXPECT_TRUE(manager.flush());
    EXPECT_EQ(typesChanged(), std::pair(false, true));
    notice(kLocal, FileChangeAnswer::NoChange);

    removeFile(root / kLocal);
    EXPECT_TRUE(notice(kLocal, FileChangeAnswer::Settled).contains(": Detected deletion: ROOT/apps"));
    EXPECT_EQ(typesChanged(), std::pair(true, true));
    root.write(kLocal, "[]\nowner = anna\n");
    EXPECT_TRUE(manager.reload("a"));
    EXPECT_EQ(metadataAt(""), "{  }, owner: anna");
    EXPECT_EQ(typesChanged(), std::pair(true, true));
}

TEST_F(ConfObjectManagerTest, TellsOthersWhatMattersToThem)
{
    constexpr char kOther[] = "apps/other/metadata/local.meta";
    const unsigned violations = ConfLock::orderViolations();
    root.write("apps/other/local/x.conf", "[o]\nk = 1\n");
    root.write(kOther, "[x]\nexport = none\n");
    root.write(kLocal, "");
    const auto seen = [this] { return root.stanzas("x", "search", "anna").contains("o"); };
    const auto importsOther = [this] {
        return root.shared().applications().importGenerations("search").contains("other");
    };
    EXPECT_FALSE(seen());
    ConfPathTrie tree;
    ConfPathMetadata metadata;
    metadata.exported = ConfExport::System;
    tree.setMetadata(metadata);
    root.at("/nobody/other/x").write(tree);
    EXPECT_TRUE(root.shared().applications().hasGlobalExports("other"));
    EXPECT_TRUE(seen());
    root.write(kOther, "[x]\nexport = none\n");
    EXPECT_TRUE(seen());
    mapper(kOther).reload(Str());
    EXPECT_FALSE(seen());
    EXPECT_FALSE(root.shared().applications().hasGlobalExports("other"));

    EXPECT_FALSE(importsOther());
    metadata = {};
    metadata.setImports({"other"});
    const ConfLog log(root);
    write("", metadata);
    EXPECT_TRUE(
        log.text().contains("Detected change to app-level metadata: {  } -> {  }, imports: { other }"));
    EXPECT_TRUE(importsOther());
    EXPECT_TRUE(seen());
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

TEST_F(ConfObjectManagerTest, FiltersOutWhatIsGone)
{
    root.write("apps/search/local/x.conf", "[kept]\nk = 1\n");
    const char kept[] = "[]\nowner = anna\n\n[x]\nowner = anna\n\n[x/kept]\nmodtime = 1000000000\n\n"
                        "[x/kept/k]\nmodtime = 1000000001.5\n\n[y/own]\ndata = value\n";
    const Str all = Str(kept) << "\n[x/gone]\nmodtime = 1200000000\n\n[y/gone/k]\nowner = anna\n";
    root.write(kLocal, all.view());
    const auto isThere = [this](const ConfPathBase &path) {
        return ConfPath(root.shared().mappers(), path).isObjectThere();
    };
    const ScopedFolder target;
    Pathname copy;
    ASSERT_TRUE(mapper().filter(target.path(), isThere, copy));
    EXPECT_EQ(readWhole(copy), kept);
    EXPECT_EQ(copy.dirname(), target.path());
    Str modtime;
    FileStatus::of(copy).modtime.toUnixStr(modtime, 1);
    EXPECT_EQ(modtime, "1000000001.5");
    EXPECT_EQ(root.read(kLocal), all);
    root.write(kLocal, kept);
    ASSERT_TRUE(mapper().filter(target.path(), isThere, copy));
    EXPECT_EQ(FileStatus::of(copy), FileStatus::of(root / kLocal));
}

} // namespace
} // namespace velmox
