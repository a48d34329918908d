#include "conf/conf_path.h"
#include "conf/mapper/conf_path_mapper.h"
#include "conf/mapper/conf_read_counters.h"
#include "tests/conf/mapper/file_notices.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"
#include "util/loader_info.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::FileNotices;
using testing::readWhole;
using testing::ScopedFolder;
using testing::writeWhole;

/// A root with an app "search" whose local directory the mapper serves.
class ConfPathMapperTest : public ::testing::Test
{
protected:
    ConfPathMapperTest() { makeDirs(directory, true); }
    ~ConfPathMapperTest() override { LoaderInfo::instance()->initSettings() = {}; }

    BundlesSetup setup() const { return BundlesSetup(root.path()); }
    void makeMapper(const Pathname &path)
    {
        mapper_ = std::make_unique<ConfPathMapper>(
            BundleHandlerData{setup(), path, root / "apps\\search", "nobody", "search", {}, nullptr});
    }
    ConfPathMapper &mapper()
    {
        if (!mapper_) {
            makeMapper(directory);
        }
        return *mapper_;
    }
    ConfPath at(StrVector parts) const { return ConfPath(setup(), ConfPathBase("Nobody", "search", parts)); }

    /// What a reader gets: "stanza key=value ..." of each stanza, each behind a semicolon.
    Str read(const Str &type)
    {
        ConfPathTrie out;
        return mapper().read(at({type}), out, ConfPathTrie::kAllLevels) ? describe(out, type) : "nothing";
    }
    Str describe(const ConfPathTrie &out, const Str &type) const
    {
        Str text;
        for (const auto &[stanza, node] : out.find(at({type}))->children()) {
            text << ";" << stanza;
            for (const auto &[key, value] : node->children()) {
                text << " " << key << "=" << value->data();
            }
        }
        return text;
    }
    bool write(StrVector parts, const Str &value = Str()) { return mapper().writeData(at(parts), value); }
    FileChangeAnswer notice(const Pathname &path) { return notices.tell(mapper(), path); }
    bool changedSince(const Str &type) { return mapper().hasChangedSince(type, state); }
    Str line(const char *level, const Str &message) const
    {
        return Str(level) << " ConfPathMapper: " << message << "\n";
    }
    /// The log without the lines on renamings.
    static Str withoutRenamings(const Str &log)
    {
        Str kept;
        for (std::size_t from = 0; from < log.size();) {
            const std::size_t end = log.find('\n', from) + 1;
            if (!log.substr(from).startsWith("INFO IniFile: Renamed ")) {
                kept << log.substr(from, end - from);
            }
            from = end;
        }
        return kept;
    }

    ScopedFolder root;
    const Pathname directory = root / "apps\\search\\local";
    const Pathname file = directory.join("inputs.conf");
    const Str where = setup().text(directory);
    const Str name = setup().text(file);
    FileNotices notices;
    ConfTypeState state;

private:
    std::unique_ptr<ConfPathMapper> mapper_;
};

TEST_F(ConfPathMapperTest, ReadsATypeWhenItIsFirstAskedFor)
{
    writeWhole(file, "\xEF\xBB\xBF"
                     "x = 1\r\n[monitor://./a]\r\n k  =  first\r\nk = last \r\nl = 1\\\r\n 2\r\n[e]\r\n");
    writeWhole(directory.join("other.conf"), "[o]\n");
    writeWhole(directory.join("notes.txt"), "[n]\n");
    makeDirs(directory.join("folder.conf"), true);
    CapturedLog log;
    const std::uint64_t opened = confReadCounters.filesOpened;
    const std::uint64_t bytes = confReadCounters.bytesParsed;
    mapper();
    EXPECT_EQ(confReadCounters.filesOpened, opened);
    EXPECT_EQ(read("inputs"), ";default x=1;e;monitor://./a k=last l=1\n 2");
    EXPECT_EQ(read("inputs"), ";default x=1;e;monitor://./a k=last l=1\n 2");
    EXPECT_EQ(confReadCounters.filesOpened, opened + 1);
    EXPECT_EQ(confReadCounters.bytesParsed, bytes + readWhole(file).size());
    for (const char *absent : {"absent", "notes", "folder", "..\\local\\other", ""}) {
        EXPECT_EQ(read(absent), "nothing");
    }
    EXPECT_EQ(log.text(), "");

    ConfPathTrie out;
    ASSERT_TRUE(mapper().read(at({"inputs", "monitor://./a", "k"}), out, 0));
    const ConfPathTrie *key = out.find(at({"inputs", "monitor://./a", "k"}));
    EXPECT_EQ(key->metadata().removable, true);
    EXPECT_EQ(key->metadata().modtime, ConfFileStatus::of(file).modtime);
    EXPECT_EQ(out.find(at({"inputs"}))->children().size(), 1u);
    ConfPathTrie stanza;
    ASSERT_TRUE(mapper().read(at({"inputs", "monitor://./a"}), stanza, 0));
    const ConfPathTrie *node = stanza.find(at({"inputs", "monitor://./a"}));
    EXPECT_EQ(node->expansion(), Str("monitor://") << (root / "apps\\search").toStr() << "/a");
    EXPECT_EQ(node->data(), "");
    EXPECT_TRUE(node->children().empty());
}

TEST_F(ConfPathMapperTest, ReadsAllTypesOfItsOwnUserAndAppAlone)
{
    writeWhole(file, "[s]\nk = 1\n");
    writeWhole(directory.join("other.conf"), "[o]\n");
    ConfPathTrie out;
    EXPECT_FALSE(mapper().read(at({}), out, 0));
    const ConfPathBase foreign[] = {{"alice", "search", {"inputs"}}, {"nobody", "system", {"inputs"}}};
    for (const ConfPathBase &path : foreign) {
        EXPECT_FALSE(mapper().read(ConfPath(setup(), path), out, ConfPathTrie::kAllLevels));
        EXPECT_FALSE(mapper().writeData(ConfPath(setup(), path), ""));
        EXPECT_FALSE(mapper().remove(ConfPath(setup(), path)));
    }
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(mapper().read(at({}), out, 2));
    EXPECT_EQ(describe(out, "inputs"), ";s");
    EXPECT_EQ(describe(out, "other"), ";o");

    makeMapper(root / "apps\\search\\absent");
    EXPECT_FALSE(mapper().read(at({}), out, 1));
}

TEST_F(ConfPathMapperTest, Searches)
{
    writeWhole(file, "[s]\nk = 1\n");
    writeWhole(directory.join("other.conf"), "[o]\n");
    struct Case
    {
        const char *user, *app, *type;
        unsigned level;
        bool result;
        const char *inputs; ///< null when nothing of it is delivered
        bool other;
    };
    const unsigned all = ConfPathTrie::kAllLevels;
    const Case cases[] = {
        {nullptr, nullptr, nullptr, all, true, ";s k=1", true},
        {"NOBODY", "search", "inputs", 5, true, ";s k=1", false},
        {nullptr, nullptr, "inputs", 4, true, ";s", false},
        {nullptr, nullptr, nullptr, 2, true, nullptr, false},
        {nullptr, nullptr, "absent", all, false, nullptr, false},
        {nullptr, "Search", nullptr, all, false, nullptr, false},
        {"alice", nullptr, nullptr, all, false, nullptr, false},
    };
    for (const Case &each : cases) {
        ConfSearch search;
        search.setMaxLevel(each.level);
        const char *const values[] = {each.user, each.app, each.type};
        for (const unsigned field : {0u, 1u, 2u}) {
            if (values[field]) {
                EXPECT_TRUE(search.constrain(static_cast<ConfSearch::Field>(field), values[field]));
            }
        }
        ConfPathTrie out;
        EXPECT_EQ(mapper().search(search, out), each.result);
        EXPECT_EQ(out.find(at({"inputs"})) ? describe(out, "inputs") : "-", each.inputs ? each.inputs : "-");
        EXPECT_EQ(out.find(at({"other"})) != nullptr, each.other);
    }
}

TEST_F(ConfPathMapperTest, PutsTwoWritesIntoOneNewFile)
{
    const Pathname deep = root / "apps\\search\\made\\local";
    const Pathname made = deep.join("inputs.conf");
    makeMapper(deep);
    EXPECT_EQ(read("inputs"), "nothing");
    EXPECT_TRUE(write({"inputs"}));
    EXPECT_EQ(readWhole(made), "\xEF\xBB\xBF\r\n");
    EXPECT_TRUE(write({"inputs", "s", "k"}, " one "));
    EXPECT_TRUE(write({"inputs", "s", "l"}, "two"));
    EXPECT_TRUE(write({"inputs", "t"}));
    EXPECT_EQ(readWhole(made), "\xEF\xBB\xBF\r\n");
    EXPECT_EQ(read("inputs"), "nothing");
    const std::uint64_t opened = confReadCounters.filesOpened;
    CapturedLog log;
    EXPECT_TRUE(mapper().flush());
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(made), "\xEF\xBB\xBF\r\n[s]\r\nk = one\r\nl = two\r\n\r\n[t]\r\n");
    EXPECT_EQ(read("inputs"), ";s k=one l=two;t");
    EXPECT_EQ(confReadCounters.filesOpened, opened);
    EXPECT_EQ(withoutRenamings(log.text()), "");
    EXPECT_EQ(notice(made), FileChangeAnswer::NoChange);
    EXPECT_FALSE(changedSince("inputs"));
}

TEST_F(ConfPathMapperTest, EditsInPlaceAndRemoves)
{
    writeWhole(file, "# head\n[s]\n# on k\nk=1\nl = 2\n\n# t\n[t]\nm = 3\n[u]\n");
    EXPECT_TRUE(write({"inputs", "s", "k"}, "9"));
    EXPECT_TRUE(mapper().remove(at({"inputs", "s", "l"})));
    EXPECT_TRUE(mapper().remove(at({"inputs", "u"})));
    EXPECT_EQ(read("inputs"), ";s k=1;t m=3");
    EXPECT_FALSE(mapper().remove(at({"inputs", "s", "absent"})));
    EXPECT_FALSE(mapper().remove(at({"absent"})));
    EXPECT_FALSE(mapper().remove(at({})));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(file), "# head\n[s]\n# on k\nk = 9\n\n# t\n[t]\nm = 3\n");
    EXPECT_EQ(read("inputs"), ";s k=9;t m=3");

    // What is removed before the flush does not come back with it.
    EXPECT_TRUE(write({"inputs", "n", "k"}, "1"));
    EXPECT_TRUE(mapper().remove(at({"inputs", "n"})));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(read("inputs"), ";s k=9;t m=3");

    const Pathname unread = directory.join("unread.conf");
    writeWhole(unread, "[s]\nk = 1\n[t]\n");
    EXPECT_TRUE(mapper().reload(""));
    EXPECT_TRUE(write({"unread", "s", "k"}, "2"));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(notice(unread), FileChangeAnswer::NoChange);
    ConfPathTrie out;
    EXPECT_TRUE(mapper().read(at({"unread", "t"}), out, 0));
    EXPECT_EQ(out.find(at({"unread", "t"}))->metadata().modtime, ConfFileStatus::of(unread).modtime);

    EXPECT_TRUE(mapper().remove(at({"inputs"})));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(file), "");
    EXPECT_EQ(read("inputs"), "nothing");
    EXPECT_EQ(notice(file), FileChangeAnswer::NoChange);
}

TEST_F(ConfPathMapperTest, LeavesAFileAloneInWhichNothingWasChanged)
{
    writeWhole(file, "[s]\nk=1\n");
    EXPECT_TRUE(mapper().remove(at({"inputs", "absent"})));
    EXPECT_FALSE(mapper().remove(at({"inputs", "s", "absent"})));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(file), "[s]\nk=1\n");
}

TEST_F(ConfPathMapperTest, RefusesWhatItCannotWrite)
{
    CapturedLog log;
    Str expected;
    const auto refuse = [&](StrVector parts, const Str &value) {
        EXPECT_FALSE(write(parts, value));
        expected << line("ERROR", Str(where) << ": Setting " << at(parts).toStr() << " = " << value
                                             << ": Unsupported path or value");
    };
    refuse({}, "");
    refuse({"inputs"}, "v");
    refuse({"inputs", "s"}, "v");
    refuse({"inputs", "s", "k", "more"}, "v");
    refuse({"..\\default\\inputs", "s", "k"}, "v");
    refuse({"a/b"}, "");
    refuse({"other.conf:inputs", "s", "k"}, "v");
    EXPECT_EQ(log.text(), expected);
    EXPECT_FALSE(mapper().writeMetadata(at({"inputs"}), {}));
    EXPECT_EQ(pathKind(root / "apps\\search\\default"), PathKind::Nothing);
}

TEST_F(ConfPathMapperTest, TellsWhyAFileCannotBeCreated)
{
    const Str setting = Str(where) << ": Setting /Nobody/search/inputs = : Cannot load ini file to modify";
    makeDirs(file, true);
    Str taken;
    taken.appendErrorText(ERROR_ALREADY_EXISTS);
    {
        CapturedLog log;
        EXPECT_FALSE(write({"inputs"}));
        EXPECT_EQ(log.text(),
                  line("ERROR", Str(name) << " already exists, but it is a directory")
                      << line("ERROR", Str("Cannot create or open conf file: ") << name << ": " << taken)
                      << line("ERROR", setting));
    }
    const Pathname plain = root / "apps\\search\\plain";
    writeWhole(plain, "");
    makeMapper(plain);
    CapturedLog log;
    EXPECT_FALSE(write({"inputs"}));
    EXPECT_TRUE(log.text().startsWith(
        line("ERROR", setup().text(plain) << " already exists, but it is not a directory")));
    EXPECT_EQ(readWhole(plain), "");
}

TEST_F(ConfPathMapperTest, WarnsOfAFileInOtherCasing)
{
    writeWhole(directory.join("Inputs.conf"), "[s]\n");
    CapturedLog log;
    EXPECT_TRUE(write({"inputs", "s", "k"}, "1"));
    EXPECT_EQ(log.text(), line("WARN", Str(name) << " already exists but with different casing: "
                                                 << setup().text(directory.join("Inputs.conf"))));
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(file), "[s]\nk = 1\n");
}

TEST_F(ConfPathMapperTest, OutlivesFilesThatVanishOrAreLocked)
{
    writeWhole(file, "[s]\nk = 1\n");
    writeWhole(directory.join("gone.conf"), "[g]\n");
    mapper();
    removeFile(directory.join("gone.conf"));
    Str missing;
    missing.appendErrorText(ERROR_FILE_NOT_FOUND);
    {
        CapturedLog log;
        EXPECT_EQ(read("gone"), "nothing");
        EXPECT_EQ(read("gone"), "nothing");
        EXPECT_EQ(log.text(),
                  line("WARN", Str("Failed to open: ")
                                   << setup().text(directory.join("gone.conf")) << ": " << missing));
    }
    {
        const FileHandle lock(CreateFileW(asWide(file), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(read("inputs"), "nothing");
        EXPECT_FALSE(write({"inputs", "s", "l"}, "2"));
        EXPECT_EQ(notice(file), FileChangeAnswer::Unsettled);
    }
    EXPECT_EQ(read("inputs"), ";s k=1");
    EXPECT_TRUE(mapper().flush());
    EXPECT_EQ(readWhole(file), "[s]\nk = 1\n");
}

TEST_F(ConfPathMapperTest, KeepsChangesInMemoryWhereToldSo)
{
    writeWhole(file, "[s]\nk = 1\nl = 2\n");
    LoaderInfo::instance()->initSettings().inMemoryOnly = true;
    CapturedLog log;
    EXPECT_TRUE(write({"inputs", "s", "k"}, "9"));
    EXPECT_TRUE(write({"fresh", "n", "k"}, "1"));
    EXPECT_TRUE(mapper().remove(at({"inputs", "s", "l"})));
    EXPECT_TRUE(mapper().flush());
    const Str skipping = Str(where) << ": Skipping on-disk modification, keeping changes in memory only for ";
    EXPECT_EQ(log.text(), line("INFO", Str(skipping) << "write of: /Nobody/search/inputs/s/k = 9")
                              << line("INFO", Str(skipping) << "write of: /Nobody/search/fresh/n/k = 1")
                              << line("INFO", Str(skipping) << "removal of: /Nobody/search/inputs/s/l"));
    EXPECT_EQ(read("inputs"), ";s k=9");
    EXPECT_EQ(read("fresh"), ";n k=1");
    EXPECT_EQ(readWhole(file), "[s]\nk = 1\nl = 2\n");
    EXPECT_EQ(pathKind(directory.join("fresh.conf")), PathKind::Nothing);
}

TEST_F(ConfPathMapperTest, FollowsChangesOnDisk)
{
    writeWhole(file, "[s]\nk = 1\n");
    EXPECT_EQ(read("inputs"), ";s k=1");
    EXPECT_FALSE(changedSince("inputs"));
    const Str ignored =
        line("INFO", Str(where) << ": Ignored change notification for " << name << ": self-generated");
    {
        CapturedLog log;
        writeWhole(file, "# only a comment\n[s]\n\nk=1\n");
        EXPECT_EQ(notice(file), FileChangeAnswer::NoChange);
        EXPECT_FALSE(changedSince("inputs"));
        EXPECT_EQ(log.text(), ignored);
    }
    {
        CapturedLog log;
        writeWhole(file, "[s]\nk = 2\n");
        EXPECT_EQ(notice(file), FileChangeAnswer::Settled);
        EXPECT_TRUE(changedSince("inputs"));
        EXPECT_FALSE(changedSince("inputs"));
        EXPECT_EQ(read("inputs"), ";s k=2");
        Str time;
        ConfFileStatus::of(file).modtime.toUnixStr(time, 3);
        EXPECT_EQ(log.text(),
                  line("INFO", Str(where) << ": Detected change to " << name << " with modtime " << time));
    }
    {
        // Between a write and its flush nothing is taken over; behind it, nothing is left to take over.
        EXPECT_TRUE(write({"inputs", "s", "k"}, "3"));
        EXPECT_EQ(notice(file), FileChangeAnswer::NoChange);
        EXPECT_EQ(read("inputs"), ";s k=2");
        EXPECT_TRUE(mapper().flush());
        CapturedLog log;
        EXPECT_EQ(notice(file), FileChangeAnswer::NoChange);
        EXPECT_EQ(log.text(), ignored);
        EXPECT_EQ(read("inputs"), ";s k=3");
        EXPECT_FALSE(changedSince("inputs"));
    }
    CapturedLog log;
    removeFile(file);
    EXPECT_EQ(notice(file), FileChangeAnswer::Settled);
    EXPECT_TRUE(changedSince("inputs"));
    EXPECT_EQ(read("inputs"), "nothing");
    EXPECT_EQ(state.toStr(), "no file [generation: 2]");
    const Pathname unrelated = root / "apps\\search\\default\\inputs.conf";
    EXPECT_EQ(notice(unrelated), FileChangeAnswer::Settled);
    EXPECT_EQ(notice(directory.join("notes.txt")), FileChangeAnswer::Settled);
    EXPECT_EQ(log.text(), line("INFO", Str(where) << ": Detected deletion: " << name) << line(
                              "ERROR", Str(where) << ": Received change notification for unrelated file: "
                                                  << setup().text(unrelated)));
    writeWhole(file, "[s]\nk = 4\n");
    EXPECT_EQ(notice(file), FileChangeAnswer::Settled);
    EXPECT_EQ(read("inputs"), ";s k=4");
}

TEST_F(ConfPathMapperTest, ReloadsWhatIsNotBeingEdited)
{
    writeWhole(file, "[s]\nk = 1\n");
    EXPECT_FALSE(mapper().reload("inputs"));
    EXPECT_EQ(read("inputs"), ";s k=1");
    writeWhole(file, "[s]\nk = 22\n");
    EXPECT_EQ(read("inputs"), ";s k=1");
    EXPECT_TRUE(mapper().reload("inputs"));
    EXPECT_EQ(read("inputs"), ";s k=22");
    writeWhole(directory.join("other.conf"), "[o]\n");
    writeWhole(directory.join("third.conf"), "[p]\n");
    EXPECT_FALSE(mapper().reload("other"));
    EXPECT_EQ(read("other"), ";o");
    EXPECT_EQ(read("third"), "nothing");
    EXPECT_FALSE(mapper().reload("..\\local\\third"));
    removeFile(directory.join("other.conf"));
    CapturedLog log;
    EXPECT_TRUE(mapper().reload(""));
    EXPECT_EQ(read("third"), ";p");
    EXPECT_EQ(read("other"), "nothing");
    EXPECT_EQ(log.text(), "");

    EXPECT_TRUE(write({"inputs", "s", "k"}, "3"));
    EXPECT_FALSE(mapper().reload("inputs"));
    EXPECT_FALSE(mapper().reload(""));
    const Str refused = Str(where) << ": Refused forced reload of ";
    EXPECT_EQ(log.text(), line("ERROR", Str(refused) << "inputs.conf: outstanding write")
                              << line("ERROR", Str(refused) << "all types: outstanding write"));
}

TEST_F(ConfPathMapperTest, LosesNoChangeToAFailedRewriteOfAnotherFile)
{
    writeWhole(file, "[s]\nk = 1\n");
    EXPECT_TRUE(write({"inputs", "s", "k"}, "2"));
    EXPECT_TRUE(write({"zlast", "s", "k"}, "3"));
    makeDirs(Pathname::fromUtf8(Str::fromFormat("%s.%lu.tmp", file.toStr().c_str(), GetCurrentProcessId())),
             true);
    EXPECT_FALSE(mapper().flush());
    EXPECT_EQ(readWhole(file), "[s]\nk = 1\n");
    EXPECT_EQ(readWhole(directory.join("zlast.conf")), "\xEF\xBB\xBF\r\n[s]\r\nk = 3\r\n");
}

} // namespace
} // namespace velmox
