#include "conf/ground/conf_exceptions.h"
#include "conf/mapper/json_conf_path_mapper.h"
#include "tests/conf/mapper/mapper_test.h"

namespace velmox {
namespace {

constexpr char kData[] = "local/data";
constexpr char kOne[] = "apps/search/local/data/fresh/one.json";

/// Objects that stand below a local directory.
class JSONConfPathMapperTest : public MapperTest
{
protected:
    void put(const char *name, std::string_view content) const
    {
        root.write(Str("apps/search/local/data/") << name, content);
    }
    Str content(const char *name) const { return root.read(Str("apps/search/local/data/") << name); }
    void makeJson() { mapper = std::make_unique<JSONConfPathMapper>(dataOf(kData)); }
};

TEST_F(JSONConfPathMapperTest, ReadsTheTextOfXmlAndHtmlFiles)
{
    put("views/home.xml", "\xEF\xBB\xBF<view/>\r\n");
    put("views/home.html", "<p/>");
    put("views/about.html", "<html/>");
    put("loose.xml", "no");
    make("xml", kData);
    EXPECT_EQ(read("views"), ";about:<html/>;home:<p/>");
    EXPECT_EQ(read("absent"), "nothing");
    ConfPathTrie out;
    EXPECT_TRUE(mapper->read(at("/views/home"), out, 0));
    EXPECT_EQ(out.find(at("/views/home"))->metadata().removable, true);

    const ConfLog log(root);
    EXPECT_FALSE(write("/views/home", "x"));
    EXPECT_FALSE(remove("/views/home"));
    put("nav/bad.xml", "\xFF");
    put("nav/marked.xml", "\xEF\xBB\xBF<m/>");
    EXPECT_TRUE(mapper->reload(""));
    EXPECT_EQ(read("nav"), ";marked:<m/>");
    EXPECT_FALSE(mapper->reload("..\\data"));
    EXPECT_TRUE(log.text().contains("Cannot read/decode: ROOT/apps/search/local/data/nav/bad.xml"));
}

TEST_F(JSONConfPathMapperTest, WritesAndFollowsJsonFiles)
{
    put("views/two.json", "{}");
    makeJson();
    removeFile(root / "apps/search/local/data/views/two.json");
    EXPECT_EQ(notice("apps/search/local/data/views/two.json"), FileChangeAnswer::Settled)
        << "of a type not read yet";
    EXPECT_TRUE(changedSince("views"));
    state = {};
    EXPECT_TRUE(write("/fresh/one", "{\"a\": 1}"));
    EXPECT_EQ(root.read(kOne), "{\"a\": 1}");
    EXPECT_EQ(read("fresh"), ";one:{\"a\": 1}");
    const FileStatus before = FileStatus::of(root / kOne);
    {
        const FileHandle held = lockOpen(root / kOne);
        EXPECT_TRUE(write("/fresh/one", "{\"a\": 1}")) << "what is unchanged is not written";
        EXPECT_FALSE(remove("/fresh/one"));
    }
    EXPECT_EQ(FileStatus::of(root / kOne), before);
    root.write(kOne, "[]");
    EXPECT_TRUE(write("/fresh/one", "{\"a\": 1}"));
    EXPECT_EQ(root.read(kOne), "{\"a\": 1}") << "another program changed it";
    for (const char *address :
         {"", "/fresh", "/fresh/", "/fresh/one/key", "/../one", "/fresh/one.json:stream", "/nul/one"}) {
        EXPECT_FALSE(write(address, "{}")) << address;
    }
    EXPECT_THROW(write("/fresh/..\\views\\two", "{}"), ConfPathDirectoryTraversalException);
    EXPECT_THROW(remove("/fresh/a\\b"), ConfPathDirectoryTraversalException);
    EXPECT_EQ(notice(kOne), FileChangeAnswer::NoChange);
    EXPECT_FALSE(changedSince("fresh"));
    root.write(kOne, "{}");
    {
        const FailingCall held("CreateFileW", -1, ERROR_SHARING_VIOLATION);
        EXPECT_EQ(notice(kOne), FileChangeAnswer::Unsettled);
    }
    EXPECT_EQ(notice(kOne), FileChangeAnswer::Settled);
    EXPECT_TRUE(changedSince("fresh"));
    EXPECT_EQ(read("fresh"), ";one:{}");
    EXPECT_TRUE(remove("/fresh/one"));
    EXPECT_EQ(read("fresh"), "nothing");
    EXPECT_EQ(notice(kOne), FileChangeAnswer::NoChange) << "its own removal";
    EXPECT_FALSE(changedSince("fresh"));
    EXPECT_EQ(notice("apps/search/local/data/loose.json"), FileChangeAnswer::Settled);
    EXPECT_FALSE(changedSince("fresh"));
}

TEST_F(JSONConfPathMapperTest, MovesLookupTablesInFromTheRunDirectoryAlone)
{
    const ScopedHome home(root / "home");
    const Pathname staging = root.setup().runDir().join("staging");
    ASSERT_TRUE(makeDirs(staging, true));
    const Pathname staged = staging.join("table.csv");
    writeWhole(staged, "a,b\n");
    make("lookups", kData);
    EXPECT_TRUE(mapper->describe().endsWith("data (lookups)"));
    EXPECT_TRUE(write("/lookups/t.csv", staged.toStr()));
    EXPECT_EQ(content("t.csv"), "a,b\n");
    EXPECT_EQ(pathKind(staged), PathKind::Nothing);
    const Str target = "apps/search/local/data/t.csv";
    EXPECT_EQ(read("lookups"), Str(";t.csv:") << (root / target).toStr());
    EXPECT_FALSE(write("/views/t.csv", staged.toStr()));
    EXPECT_EQ(notice(target), FileChangeAnswer::NoChange);
    root.write(target, "c,d\n");
    EXPECT_EQ(notice(target), FileChangeAnswer::Settled);
    EXPECT_TRUE(changedSince("lookups"));

    root.write("outside.csv", "secret");
    const Pathname outside = root / "outside.csv";
    const Pathname winding = staging.join("..\\..\\..\\..\\..").join("outside.csv");
    for (const Pathname &from :
         {outside, winding, staging, root.setup().runDir().concat("-not\\table.csv")}) {
        EXPECT_FALSE(write("/lookups/u.csv", from.toStr())) << from.toStr().c_str();
    }
    EXPECT_FALSE(write("/lookups/u.csv", staged.toStr())) << "it is gone";
    EXPECT_EQ(root.read("outside.csv"), "secret");
    for (const char *const handler : {"searchscripts", "history"}) {
        make(handler, kData);
        ASSERT_TRUE(mapper) << handler;
        EXPECT_EQ(read(handler), Str(";t.csv:") << (root / target).toStr());
    }
}

} // namespace
} // namespace velmox
