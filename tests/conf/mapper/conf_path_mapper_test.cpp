#include "conf/file/conf_line_reader.h"
#include "tests/conf/mapper/mapper_test.h"
#include "util/log/logger.h"

namespace velmox {
namespace {

constexpr char kFile[] = "apps/search/local/inputs.conf";
constexpr char kOther[] = "apps/search/local/other.conf";
/// What a conf file begins with that the store makes.
constexpr char kNew[] = "\xEF\xBB\xBF\r\n";

class ConfPathMapperTest : public MapperTest
{
protected:
    void make(const char *text = "[s]\nk = 1\n")
    {
        root.write(kFile, text);
        MapperTest::make("conf");
    }
    ConfPathMetadata metadataOf(const ConfPath &path) const
    {
        ConfPathTrie out;
        return mapper->read(path, out, 0) ? out.find(path)->metadata() : ConfPathMetadata();
    }
};

TEST_F(ConfPathMapperTest, ReadsATypeWhenItIsFirstAskedFor)
{
    root.write(kOther, "[o]\n");
    root.write("apps/search/local/notes.txt", "[n]\n");
    root.makeFolder("apps/search/local/folder.conf");
    const std::uint64_t opened = confReadCounters.filesOpened;
    const std::uint64_t bytes = confReadCounters.bytesParsed;
    make("\xEF\xBB\xBFx = 1\r\n[monitor://./a]\r\n k  =  first\r\nk = last \r\nl = 1\\\r\n 2\r\n[e]\r\n");
    const ConfLog log(root);
    EXPECT_EQ(confReadCounters.filesOpened, opened);
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(read("inputs"), ";default x=1;e;monitor://./a k=last l=1\n 2");
    }
    EXPECT_EQ(confReadCounters.filesOpened, opened + 1);
    EXPECT_EQ(confReadCounters.bytesParsed, bytes + root.read(kFile).size());
    for (const char *absent : {"absent", "notes", "folder", "..\\local\\other", ""}) {
        EXPECT_EQ(read(absent), "nothing");
    }

    const ConfPath stanza(root.shared().mappers(),
                          ConfPathBase("nobody", "search", {"inputs", "monitor://./a"}));
    ConfPathTrie out;
    ASSERT_TRUE(mapper->read(stanza, out, 0));
    EXPECT_EQ(out.find(stanza)->expansion(), Str("monitor://") << (root / "apps/search").toStr() << "/a");
    EXPECT_EQ(out.find(stanza)->data(), "");
    EXPECT_TRUE(out.find(stanza)->children().empty());
    EXPECT_EQ(metadataOf(at("/inputs/default/x")).removable, true);
    EXPECT_EQ(metadataOf(at("/inputs/default/x")).modtime, FileStatus::of(root / kFile).modtime);

    // All types, of its own user and app alone.
    out.clear();
    EXPECT_FALSE(mapper->read(at(""), out, 0));
    EXPECT_FALSE(mapper->read(root.at("/alice/search/inputs"), out, ConfPathTrie::kAllLevels));
    EXPECT_FALSE(mapper->remove(root.at("/nobody/system/inputs")));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(mapper->read(at(""), out, 2));
    EXPECT_EQ(describe(out, "inputs"), ";default;e;monitor://./a");
    EXPECT_EQ(describe(out, "other"), ";o");
    root.write("apps/search/local/nested/inputs.conf", "[s]\n");
    MapperTest::make("conf", "local/nested");
    EXPECT_EQ(metadataOf(at("/inputs/s")).removable, false) << "its own name counts";
    MapperTest::make("conf", "absent");
    EXPECT_FALSE(mapper->read(at(""), out, 1));
    EXPECT_EQ(log.text(), "");
}

TEST_F(ConfPathMapperTest, SearchesWhatCanBeHere)
{
    root.write(kOther, "[o]\n");
    make();
    /// What is found of "inputs", and whether "other" is; nothing when that cannot be here. Null is
    /// unconstrained.
    const auto found = [this](const char *user, const char *app, const char *type, unsigned level) -> Str {
        ConfSearch search;
        search.setMaxLevel(level);
        const char *const fields[] = {user, app, type};
        for (const unsigned field : {0u, 1u, 2u}) {
            EXPECT_TRUE(!fields[field] ||
                        search.constrain(static_cast<ConfSearch::Field>(field), fields[field]));
        }
        ConfPathTrie out;
        const bool isHere = mapper->search(search, out);
        return isHere ? describe(out, "inputs") << (describe(out, "other") != "-" ? " other" : "") : "no";
    };
    EXPECT_EQ(found(nullptr, nullptr, nullptr, ConfPathTrie::kAllLevels), ";s k=1 other");
    EXPECT_EQ(found("NOBODY", "search", "inputs", 4), ";s");
    EXPECT_EQ(found(nullptr, nullptr, nullptr, 2), "-");
    EXPECT_EQ(found(nullptr, nullptr, "absent", 5), "no");
    EXPECT_EQ(found(nullptr, "Search", nullptr, 5), "no");
    EXPECT_EQ(found("alice", nullptr, nullptr, 5), "no");
}

TEST_F(ConfPathMapperTest, PutsTwoWritesIntoOneNewFile)
{
    const Str made = "apps/search/made/local/inputs.conf";
    root.makeFolder("apps/search");
    MapperTest::make("conf", "made\\local");
    EXPECT_EQ(read("inputs"), "nothing");
    EXPECT_TRUE(write("/inputs"));
    EXPECT_TRUE(write("/inputs/s/k", " one "));
    EXPECT_TRUE(write("/inputs/s/l", "two"));
    EXPECT_TRUE(write("/inputs/t"));
    EXPECT_EQ(root.read(made), kNew);
    EXPECT_EQ(read("inputs"), "nothing");
    const std::uint64_t opened = confReadCounters.filesOpened;
    const ConfLog log(root);
    EXPECT_TRUE(mapper->flush());
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(made), Str(kNew) << "[s]\r\nk = one\r\nl = two\r\n\r\n[t]\r\n");
    EXPECT_EQ(read("inputs"), ";s k=one l=two;t");
    EXPECT_EQ(confReadCounters.filesOpened, opened);
    EXPECT_EQ(log.told(), "");
    EXPECT_EQ(notice(made), FileChangeAnswer::NoChange);
    EXPECT_FALSE(changedSince("inputs"));
}

TEST_F(ConfPathMapperTest, EditsInPlaceAndRemoves)
{
    const char before[] = "# head\n[s]\n# on k\nk=1\nl = 2\n\n# t\n[t]\nm = 3\n[u]\n";
    make(before);
    EXPECT_TRUE(remove("/inputs/absent"));
    for (const char *absent : {"/inputs/s/absent", "/absent/s", ""}) {
        EXPECT_FALSE(remove(absent)) << absent;
    }
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(kFile), before) << "nothing was changed";
    EXPECT_TRUE(write("/inputs/s/k", "9"));
    EXPECT_TRUE(remove("/inputs/s/l"));
    EXPECT_TRUE(remove("/inputs/u"));
    EXPECT_EQ(read("inputs"), ";s k=1;t m=3");
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(kFile), "# head\n[s]\n# on k\nk = 9\n\n# t\n[t]\nm = 3\n");
    EXPECT_EQ(read("inputs"), ";s k=9;t m=3");

    // What is removed before the flush does not come back with it.
    EXPECT_TRUE(write("/inputs/n/k", "1"));
    EXPECT_TRUE(remove("/inputs/n"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(read("inputs"), ";s k=9;t m=3");

    // A type that nobody has read is written with the rest of its file.
    root.write(kOther, "[s]\nk = 1\n[t]\n");
    EXPECT_TRUE(mapper->reload(""));
    EXPECT_TRUE(write("/other/s/k", "2"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(notice(kOther), FileChangeAnswer::NoChange);
    EXPECT_EQ(metadataOf(at("/other/t")).modtime, FileStatus::of(root / kOther).modtime);

    EXPECT_TRUE(remove("/inputs"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(kFile), "");
    EXPECT_EQ(read("inputs"), "nothing");
    EXPECT_EQ(notice(kFile), FileChangeAnswer::NoChange);
}

TEST_F(ConfPathMapperTest, RefusesWhatItCannotWrite)
{
    make();
    for (const char *address :
         {"", "/inputs/s/k/more", "/..\\default\\inputs/s/k", "/a?b", "/other.conf:inputs/s/k"}) {
        EXPECT_FALSE(write(address)) << address;
    }
    for (const char *address : {"/inputs", "/inputs/s"}) {
        const ConfLog log(root);
        EXPECT_FALSE(write(address, "v"));
        EXPECT_TRUE(log.text().contains(Str("Setting /Nobody/search")
                                        << address << " = v: Unsupported path or value\n"));
    }
    EXPECT_FALSE(mapper->writeData(root.at("/alice/search/inputs"), ""));
    EXPECT_FALSE(mapper->writeMetadata(at("/inputs"), {}));
    EXPECT_FALSE(root.has("apps/search/default"));
}

TEST_F(ConfPathMapperTest, WritesNeitherBelowAFileNorUnderANameInOtherCasing)
{
    root.write("apps/search/plain", "");
    MapperTest::make("conf", "plain");
    {
        const ConfLog log(root);
        EXPECT_FALSE(write("/inputs"));
        EXPECT_TRUE(
            log.text().contains("ROOT/apps/search/plain already exists, but it is not a directory\n"));
    }
    EXPECT_EQ(root.read("apps/search/plain"), "");
    root.write("apps/search/local/Inputs.conf", "[s]\n");
    MapperTest::make("conf");
    const ConfLog log(root);
    EXPECT_TRUE(write("/inputs/s/k", "1"));
    EXPECT_TRUE(log.text().contains(
        " already exists but with different casing: ROOT/apps/search/local/Inputs.conf\n"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(kFile), "[s]\nk = 1\n");
}

TEST_F(ConfPathMapperTest, OutlivesFilesThatVanishOrCannotBeRead)
{
    root.write(kOther, "[o]\n");
    make("[s]\nk = 1\n[t]\n");
    removeFile(root / kOther);
    {
        const ConfLog log(root);
        EXPECT_EQ(read("other"), "nothing");
        EXPECT_EQ(read("other"), "nothing");
        EXPECT_EQ(log.text(),
                  "WARN ConfPathMapper: Failed to open: ROOT/apps/search/local/other.conf: <2>\n");
    }
    {
        const FileHandle held(
            CreateFileW(asWide(root / kFile), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(read("inputs"), "nothing");
        EXPECT_EQ(notice(kFile), FileChangeAnswer::Unsettled);
    }
    EXPECT_EQ(read("inputs"), ";s k=1;t");
}

TEST_F(ConfPathMapperTest, KeepsChangesInMemoryWhereToldSo)
{
    make("[s]\nk = 1\nl = 2\n");
    const ScopedInitSettings scoped(ScopedInitSettings::inMemoryOnly());
    const ConfLog log(root);
    EXPECT_TRUE(write("/inputs/s/k", "9"));
    EXPECT_TRUE(write("/fresh/n/k", "1"));
    EXPECT_TRUE(remove("/inputs/s/l"));
    EXPECT_TRUE(remove("/absent"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_TRUE(log.text().contains("keeping changes in memory only for write of: ")) << log.text().c_str();
    EXPECT_EQ(read("inputs"), ";s k=9");
    EXPECT_EQ(read("fresh"), ";n k=1");
    EXPECT_EQ(root.read(kFile), "[s]\nk = 1\nl = 2\n");
    EXPECT_FALSE(root.has("apps/search/local/fresh.conf"));
}

TEST_F(ConfPathMapperTest, FollowsChangesOnDisk)
{
    make();
    EXPECT_EQ(read("inputs"), ";s k=1");
    const ConfLog log(root);
    const auto follow = [&](const char *text, FileChangeAnswer answer, bool changed, const char *seen) {
        text == nullptr ? void(removeFile(root / kFile)) : root.write(kFile, text);
        EXPECT_EQ(notice(kFile), answer);
        EXPECT_EQ(changedSince("inputs"), changed);
        EXPECT_FALSE(changedSince("inputs"));
        EXPECT_EQ(read("inputs"), seen);
    };
    follow("# only a comment\n[s]\n\nk=1\n", FileChangeAnswer::NoChange, false, ";s k=1");
    follow("[s]\nk = 2\n", FileChangeAnswer::Settled, true, ";s k=2");
    // Between a write and its flush nothing is taken over; behind it, nothing is left to take over.
    EXPECT_TRUE(write("/inputs/s/k", "3"));
    root.write(kFile, "[s]\nk = 77\n");
    EXPECT_EQ(notice(kFile), FileChangeAnswer::NoChange);
    EXPECT_EQ(read("inputs"), ";s k=2");
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(notice(kFile), FileChangeAnswer::NoChange);
    EXPECT_EQ(read("inputs"), ";s k=3");
    EXPECT_FALSE(changedSince("inputs"));
    follow(nullptr, FileChangeAnswer::Settled, true, "nothing");
    EXPECT_EQ(state.toStr(), "no file [generation: 2]");
    EXPECT_EQ(notice("apps/search/local/notes.txt"), FileChangeAnswer::Settled);
    expectInOrder(log.told(), {": self-generated\n", ": Detected change to ROOT/apps", ": self-generated\n",
                               ": Detected deletion: ROOT/apps"});
    follow("[s]\nk = 4\n", FileChangeAnswer::Settled, true, ";s k=4");
}

TEST_F(ConfPathMapperTest, ReloadsWhatIsNotBeingEdited)
{
    make();
    const auto reload = [this](const char *type, const char *expected, bool result) {
        EXPECT_EQ(mapper->reload(type), result) << type;
        EXPECT_EQ(read(*type ? type : "inputs"), expected);
    };
    reload("inputs", ";s k=1", false);
    root.write(kFile, "[s]\nk = 22\n");
    EXPECT_EQ(read("inputs"), ";s k=1");
    reload("inputs", ";s k=22", true);
    reload("..\\local\\inputs", "nothing", false);
    root.write("apps/search/local/third.conf", "[p]\n");
    EXPECT_EQ(read("third"), "nothing");
    reload("", ";s k=22", true);
    EXPECT_EQ(read("third"), ";p");

    EXPECT_TRUE(write("/inputs/s/k", "3"));
    reload("inputs", ";s k=22", false);
    reload("", ";s k=22", false);
}

TEST_F(ConfPathMapperTest, LosesNoChangeToAFailedRewriteOfAnotherFile)
{
    make();
    EXPECT_TRUE(write("/inputs/s/k", "2"));
    EXPECT_TRUE(write("/zlast/s/k", "3"));
    {
        const FailingCall full("fflush", -1, ERROR_DISK_FULL);
        EXPECT_FALSE(mapper->flush());
    }
    EXPECT_EQ(root.read(kFile), "[s]\nk = 1\n");
    EXPECT_EQ(root.read("apps/search/local/zlast.conf"), Str(kNew) << "[s]\r\nk = 3\r\n");
    EXPECT_TRUE(write("/inputs/s/k", "4"));
    EXPECT_TRUE(mapper->flush());
    EXPECT_EQ(root.read(kFile), "[s]\nk = 4\n");
}

} // namespace
} // namespace velmox
