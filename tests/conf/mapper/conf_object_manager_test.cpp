#include "conf/conf_lock.h"
#include "conf/conf_path.h"
#include "conf/conf_path_exceptions.h"
#include "conf/mapper/conf_object_manager.h"
#include "conf/property_pages.h"
#include "conf/setup/application_manager.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/shared_conf_services.h"
#include "searchthing/filesystem_change_watcher.h"
#include "tests/conf/conf_root.h"
#include "tests/support/captured_log.h"
#include "util/clock.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ConfRoot;
using testing::readWhole;
using testing::ScopedFolder;
using testing::ScopedInitSettings;
using testing::writeWhole;

constexpr char kLocal[] = "apps\\search\\metadata\\local.meta";
constexpr char kDefault[] = "apps\\search\\metadata\\default.meta";

class ConfObjectManagerTest : public ::testing::Test
{
protected:
    BundlesSetup setup() const { return root.setup(); }
    ConfPath path(StrVector parts) const
    {
        return ConfPath(setup(), ConfPathBase("nobody", "search", std::move(parts)));
    }
    ConfObjectManager &mapper(const char *name) const
    {
        IConfPathMapper *const found = setup().shared().mappers().mapperFor(root / name);
        EXPECT_TRUE(found) << name;
        return dynamic_cast<ConfObjectManager &>(*found);
    }
    Str metadataAt(StrVector parts) const
    {
        try {
            return path(std::move(parts)).readMetadata().toStr();
        } catch (const ConfPathException &exception) {
            return exception.what();
        }
    }

    ConfRoot root;
};

/// Makes notices of changed files.
struct Notices : FilesystemChangeWatcher
{
    Notices() : FilesystemChangeWatcher(Clock::system()) {}
    bool handleChange(WatchedFileState &) override { return true; }
};

ConfPathMetadata owned(const char *name)
{
    ConfPathMetadata metadata;
    metadata.setOwner(name);
    return metadata;
}

TEST_F(ConfObjectManagerTest, CompletesLocalMetadataByThatOfTheDefaultLayer)
{
    root.write(kLocal, "[inputs]\nowner = anna\n[/bert/other/inputs]\nexport = none\n");
    root.write(kDefault, "[]\nexport = system\n[inputs]\nowner = system\naccess = read : [ * ]\n");
    EXPECT_EQ(metadataAt({"inputs"}), "{ read : [ * ] }, owner: anna");
    EXPECT_EQ(metadataAt({}), "{  }, export: global");
    EXPECT_EQ(metadataAt({"outputs"}), "Does not exist: /nobody/search/outputs");
    EXPECT_EQ(path({"inputs", "x"}).effectiveMetadata().toStr(),
              "{ read : [ * ] }, export: global, owner: anna");
    ConfPathTrie other;
    ConfPath(setup(), ConfPathBase("Bert", "other")).read(other);
    EXPECT_TRUE(other.find(ConfPathBase("bert", "other", {"inputs"})));

    ConfSearch search;
    search.constrain(ConfSearch::User, "Nobody");
    search.constrain(ConfSearch::Type, "inputs");
    search.setMaxLevel(ConfPathTrie::kAppLevel);
    ConfPathTrie found;
    EXPECT_FALSE(mapper(kLocal).search(search, found));
    EXPECT_TRUE(found.empty());
    EXPECT_TRUE(mapper(kDefault).search(search, found));
    search.setMaxLevel(ConfPathTrie::kAllLevels);
    EXPECT_TRUE(mapper(kLocal).search(search, found));
    Str text;
    found.dump(&text);
    EXPECT_EQ(text, "nobody\n  search {  }, export: global\n    inputs {  }, owner: anna\n");
}

TEST_F(ConfObjectManagerTest, WritesOnlyWhatDiffersAndKeepsTheRestOfTheFile)
{
    const char before[] =
        "# head\n\n[inputs]\n# who\nowner = anna\nversion = 7\n\n[inputs/a%2Fb]\nexport = app\n# tail\n";
    root.write(kLocal, before);
    ConfPathTrie tree;
    {
        CapturedLog log;
        path({"inputs"}).write(tree);
        tree.setMetadata(owned("Anna"));
        path({"inputs"}).write(tree);
        mapper(kLocal).remove(path({"absent"}));
        EXPECT_TRUE(mapper(kLocal).flush());
        EXPECT_FALSE(log.text().contains("Renamed"));
    }
    EXPECT_EQ(readWhole(root / kLocal), before);

    tree.setMetadata(owned("Bert"));
    path({"inputs"}).write(tree);
    ConfPathMetadata metadata;
    metadata.access = ConfAcl::parse("read : [ * ]");
    metadata.exported = ConfExport::System;
    tree.setMetadata(metadata);
    path({"inputs", "a/b"}).write(tree);
    EXPECT_EQ(readWhole(root / kLocal),
              "# head\n\n[inputs]\n# who\nowner = bert\nversion = 7\n\n[inputs/a%2Fb]\nexport = system\n"
              "access = read : [ * ]\n# tail\n");
    EXPECT_EQ(metadataAt({"inputs", "a/b"}), "{ read : [ * ] }, export: global");

    EXPECT_TRUE(mapper(kLocal).writeData(path({"inputs", "new", "key"}), "value"));
    EXPECT_THROW(path({"inputs", "new", "key"}).readData(), ConfPathDoesNotExistException);
    EXPECT_TRUE(mapper(kLocal).flush());
    EXPECT_EQ(path({"inputs", "new", "key"}).readData(), "value");
    EXPECT_TRUE(mapper(kLocal).remove(path({"inputs", "a/b"})));
    EXPECT_TRUE(mapper(kLocal).writeData(path({"inputs", "new", "key"}), ""));
    EXPECT_TRUE(mapper(kLocal).flush());
    EXPECT_EQ(readWhole(root / kLocal),
              "# head\n\n[inputs]\n# who\nowner = bert\nversion = 7\n\n[inputs/new/key]\n# tail\n");
    EXPECT_TRUE(mapper(kLocal).remove(path({"inputs"})));
    EXPECT_TRUE(mapper(kLocal).flush());
    EXPECT_EQ(metadataAt({"inputs"}), "Does not exist: /nobody/search/inputs");
}

TEST_F(ConfObjectManagerTest, MakesAFileForTheFirstMetadataAndNotBefore)
{
    ConfPathTrie tree;
    path({"inputs", "x"}).write(tree);
    EXPECT_TRUE(mapper(kLocal).remove(path({"inputs", "x"})));
    EXPECT_TRUE(mapper(kLocal).flush());
    EXPECT_EQ(pathKind(root / "apps"), PathKind::Nothing);
    ConfPathMetadata metadata = owned("anna");
    metadata.removable = true;
    tree.setMetadata(metadata);
    path({"inputs", "x y"}).write(tree);
    EXPECT_EQ(readWhole(root / kLocal), "[inputs/x%20y]\r\nowner = anna\r\n");
}

TEST_F(ConfObjectManagerTest, TakesUpWhatAnotherProcessWrote)
{
    root.write(kLocal, "[a]\nowner = anna\n");
    EXPECT_EQ(metadataAt({"a"}), "{  }, owner: anna");
    root.write(kLocal, "[a]\nowner = somebody else\n[b]\nowner = bert\n");
    EXPECT_EQ(metadataAt({"a"}), "{  }, owner: anna");
    ConfPathTrie tree;
    tree.setMetadata(owned("anna"));
    path({"a"}).write(tree);
    EXPECT_EQ(readWhole(root / kLocal), "[a]\nowner = anna\n\n[b]\nowner = bert\n");
    EXPECT_EQ(metadataAt({"b"}), "{  }, owner: bert");
}

TEST_F(ConfObjectManagerTest, ReportsAFileThatCannotBeOpened)
{
    root.write(kLocal, "[a]\nowner = anna\n");
    {
        const FileHandle held(
            CreateFileW(asWide(root / kLocal), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        CapturedLog log;
        EXPECT_EQ(metadataAt({"a"}), "Does not exist: /nobody/search/a");
        Str reason;
        reason.appendErrorText(ERROR_SHARING_VIOLATION);
        EXPECT_TRUE(log.text().contains(Str("ERROR ConfObjectManagerDB: Cannot initialize: ")
                                        << (root / kLocal).toStr() << ": " << reason << "\n"))
            << log.text().view();
        ConfPathTrie tree;
        tree.setMetadata(owned("bert"));
        EXPECT_THROW(path({"a"}).write(tree), ConfPathFlushException);
        EXPECT_TRUE(log.text().contains("local.meta: Failed to load from disk and cannot flush\n"));
    }
    EXPECT_TRUE(mapper(kLocal).flush());
    EXPECT_EQ(metadataAt({"a"}), "{  }, owner: anna");
}

TEST_F(ConfObjectManagerTest, KeepsChangesInMemoryWhenNothingMayBeWritten)
{
    root.write(kLocal, "[a]\nowner = anna\n");
    InitSettings settings;
    settings.inMemoryOnly = true;
    const ScopedInitSettings inMemoryOnly(settings);
    ConfPathTrie tree;
    tree.setMetadata(owned("bert"));
    CapturedLog log;
    path({"a"}).write(tree);
    path({"a"}).write(tree);
    tree.setMetadata(owned("chris"));
    path({"b"}).write(tree);
    ConfObjectManager &manager = mapper(kLocal);
    EXPECT_TRUE(manager.writeData(path({"b", "x"}), "value"));
    EXPECT_TRUE(manager.remove(path({"a"})));
    EXPECT_EQ(metadataAt({"a"}), "{  }, owner: bert");
    EXPECT_TRUE(manager.flush());
    EXPECT_EQ(log.text().find("Skipping flush, keeping changes in memory only"),
              log.text().find("ConfObjectManagerDB") + 23 + (root / kLocal).toStr().size());
    EXPECT_EQ(metadataAt({"a"}), "Does not exist: /nobody/search/a");
    EXPECT_EQ(metadataAt({"b"}), "{  }, owner: chris");
    EXPECT_EQ(path({"b", "x"}).readData(), "value");
    EXPECT_EQ(readWhole(root / kLocal), "[a]\nowner = anna\n");
}

/// "LEVEL ConfObjectManagerDB: ", the text, and LF.
Str line(const char *level, const Str &text)
{
    return Str(level) << " ConfObjectManagerDB: " << text << "\n";
}

TEST_F(ConfObjectManagerTest, FollowsNoticesOfChanges)
{
    root.write(kLocal, "[a]\nowner = anna\n[b]\nowner = anna\n");
    ConfObjectManager &manager = mapper(kLocal);
    Notices notices;
    const Str file = (root / kLocal).toStr();
    const auto notice = [&](const Pathname &path, Str &log) {
        WatchedFileState state(notices, path, {}, WatchedFileState::kPollMs);
        const CapturedLog captured;
        const FileChangeAnswer answer = manager.onFileChange(state);
        log = captured.text();
        return answer;
    };
    const auto typesChanged = [&, a = manager.newState(), b = manager.newState()] {
        return std::pair(manager.hasChangedSince("a", *a), manager.hasChangedSince("b", *b));
    };
    Str log;
    EXPECT_EQ(notice(root / kDefault, log), FileChangeAnswer::Settled);
    EXPECT_EQ(log, line("ERROR", Str(file) << ": Received change notification for unrelated file: "
                                           << (root / kDefault).toStr()));

    root.write(kLocal, "# only a comment\n[b]\nowner = Anna\nmodtime = 9\n[a]\nowner = anna\n");
    EXPECT_EQ(notice(root / kLocal, log), FileChangeAnswer::NoChange);
    EXPECT_EQ(log,
              line("INFO", Str(file) << ": Ignored change notification for " << file << ": self-generated"));
    EXPECT_EQ(typesChanged(), std::pair(false, false));

    root.write(kLocal, "[a]\nowner = bert\n[b]\nowner = anna\n");
    EXPECT_EQ(notice(root / kLocal, log), FileChangeAnswer::Settled);
    EXPECT_TRUE(log.startsWith(Str("INFO ConfObjectManagerDB: ")
                               << file << ": Detected change to " << file << " with modtime "))
        << log.view();
    EXPECT_EQ(typesChanged(), std::pair(true, false));
    EXPECT_EQ(typesChanged(), std::pair(false, false));

    EXPECT_TRUE(manager.writeMetadata(path({"b"}), owned("chris")));
    removeFile(root / kLocal);
    EXPECT_EQ(notice(root / kLocal, log), FileChangeAnswer::NoChange);
    {
        CapturedLog refused;
        EXPECT_FALSE(manager.reload(Str()));
        EXPECT_EQ(refused.text(), line("ERROR", Str(file) << ": Refused forced reload: outstanding write"));
    }
    EXPECT_TRUE(manager.flush());
    EXPECT_EQ(typesChanged(), std::pair(false, true));
    EXPECT_EQ(notice(root / kLocal, log), FileChangeAnswer::NoChange);

    removeFile(root / kLocal);
    EXPECT_EQ(notice(root / kLocal, log), FileChangeAnswer::Settled);
    EXPECT_EQ(log, line("INFO", Str(file) << ": Detected deletion: " << file));
    EXPECT_EQ(typesChanged(), std::pair(true, true));
    root.write(kLocal, "[]\nowner = anna\n");
    EXPECT_EQ(metadataAt({}), "Does not exist: /nobody/search");
    EXPECT_TRUE(manager.reload("a"));
    EXPECT_EQ(metadataAt({}), "{  }, owner: anna");
    EXPECT_EQ(typesChanged(), std::pair(true, true));
}

TEST_F(ConfObjectManagerTest, TellsOthersWhatMattersToThem)
{
    const unsigned violations = ConfLock::orderViolations();
    root.write("apps\\other\\local\\x.conf", "[o]\nk = 1\n");
    root.write("apps\\other\\metadata\\local.meta", "[x]\nexport = none\n");
    root.write(kLocal, "");
    const auto seen = [this] {
        Stanzas stanzas;
        PropertyPages::get("x", {setup(), "anna", "search"})->enumerateStanzasWithPrefix("", stanzas);
        return stanzas.contains("o");
    };
    const auto importsOther = [this] {
        return setup().shared().applications().importGenerations("search").contains("other");
    };
    EXPECT_FALSE(seen());

    ConfPathTrie tree;
    ConfPathMetadata metadata;
    metadata.exported = ConfExport::System;
    tree.setMetadata(metadata);
    ConfPath(setup(), ConfPathBase("nobody", "other", {"x"})).write(tree);
    EXPECT_TRUE(setup().shared().applications().hasGlobalExports("other"));
    EXPECT_TRUE(seen());
    root.write("apps\\other\\metadata\\local.meta", "[x]\nexport = none\n");
    EXPECT_TRUE(seen());
    mapper("apps\\other\\metadata\\local.meta").reload(Str());
    EXPECT_FALSE(seen());
    EXPECT_FALSE(setup().shared().applications().hasGlobalExports("other"));

    EXPECT_FALSE(importsOther());
    metadata = {};
    metadata.setImports({"other"});
    tree.setMetadata(metadata);
    CapturedLog log;
    path({}).write(tree);
    EXPECT_TRUE(log.text().contains(
        line("INFO", (root / kLocal).toStr()
                         << ": Detected change to app-level metadata: {  } -> {  }, imports: { other }")))
        << log.text().view();
    EXPECT_TRUE(importsOther());
    EXPECT_TRUE(seen());
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

TEST_F(ConfObjectManagerTest, FiltersOutWhatIsGone)
{
    root.write("apps\\search\\local\\x.conf", "[kept]\nk = 1\n");
    const char kept[] = "[]\nowner = anna\n\n[x]\nowner = anna\n\n[x/kept]\nmodtime = 1000000000\n\n"
                        "[x/kept/k]\nmodtime = 1000000001.5\n\n[y/own]\ndata = value\n";
    root.write(kLocal, Str(kept) << "\n[x/gone]\nmodtime = 1200000000\n\n[y/gone/k]\nowner = anna\n");
    const Str before = readWhole(root / kLocal);
    const ScopedFolder target;
    Pathname copy;
    ASSERT_TRUE(mapper(kLocal).filter(target.path(), copy));
    EXPECT_EQ(readWhole(copy), kept);
    EXPECT_EQ(copy.dirname(), target.path());
    Str modtime;
    FileStatus::of(copy).modtime.toUnixStr(modtime, 1);
    EXPECT_EQ(modtime, "1000000001.5");
    EXPECT_EQ(readWhole(root / kLocal), before);

    root.write(kLocal, kept);
    ASSERT_TRUE(mapper(kLocal).filter(target.path(), copy));
    EXPECT_EQ(FileStatus::of(copy), FileStatus::of(root / kLocal));
    EXPECT_EQ(target.count(), 2u);

    CapturedLog log;
    EXPECT_FALSE(mapper(kLocal).filter(target / "absent", copy));
    EXPECT_TRUE(
        log.text().startsWith(Str("ERROR ConfObjectManagerDB: Cannot create temporary for filtering, in dir=")
                              << (target / "absent").toStr() << ": "));
    removeFile(root / kLocal);
    EXPECT_FALSE(mapper(kLocal).filter(target.path(), copy));
    EXPECT_TRUE(log.text().contains(Str("ERROR ConfObjectManagerDB: Cannot stat() for filtering: ")
                                    << (root / kLocal).toStr() << ": "));
    EXPECT_EQ(target.count(), 2u);
}

} // namespace
} // namespace velmox
