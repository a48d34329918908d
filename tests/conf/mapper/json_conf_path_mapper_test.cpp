#include "conf/conf_path.h"
#include "conf/conf_path_exceptions.h"
#include "conf/mapper/conf_path_mapper_factory.h"
#include "conf/mapper/json_conf_path_mapper.h"
#include "conf/mapper/text_object_conf_path_mappers.h"
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

/// An app "search" below whose local directory the objects stand.
class JSONConfPathMapperTest : public ::testing::Test
{
protected:
    JSONConfPathMapperTest() { makeDirs(directory.join("views"), true); }
    ~JSONConfPathMapperTest() override { LoaderInfo::instance()->initSettings() = {}; }

    BundleHandlerData data() const
    {
        return {setup, directory, root / "app", "nobody", "search", {}, nullptr};
    }
    void make(const char *handler) { mapper = makeConfPathMapper(handler, data()); }
    void makeJson() { mapper = std::make_unique<JSONConfPathMapper>(data()); }
    ConfPath at(StrVector parts) const { return ConfPath(setup, ConfPathBase("nobody", "search", parts)); }
    bool write(StrVector parts, const Str &value) { return mapper->writeData(at(parts), value); }
    /// "stanza=value" of each object of a type, joined by semicolons.
    Str read(const Str &type) const
    {
        ConfPathTrie out;
        Str text;
        if (mapper->read(at({type}), out, ConfPathTrie::kAllLevels)) {
            for (const auto &[stanza, node] : out.find(at({type}))->children()) {
                text << stanza << "=" << node->data() << ";";
            }
        }
        return text;
    }
    FileChangeAnswer notice(const Pathname &path) { return notices.tell(*mapper, path); }

    ScopedFolder root;
    const BundlesSetup setup{root.path()};
    const Pathname directory = root / "app\\local\\data";
    const Str where = setup.text(directory);
    std::unique_ptr<IConfPathMapper> mapper;
    FileNotices notices;
    ConfTypeState state;
};

TEST_F(JSONConfPathMapperTest, ReadsTheTextOfXmlAndHtmlFiles)
{
    writeWhole(directory.join("views\\home.xml"), "\xEF\xBB\xBF<view/>\r\n");
    writeWhole(directory.join("views\\home.html"), "<p/>");
    writeWhole(directory.join("views\\about.html"), "<html/>");
    writeWhole(directory.join("views\\notes.txt"), "no");
    writeWhole(directory.join("loose.xml"), "no");
    make("xml");
    EXPECT_EQ(mapper->describe(), Str("DirectFileConfPathMapper: ") << where);
    EXPECT_EQ(read("views"), "about=<html/>;home=<p/>;");
    EXPECT_EQ(read("absent"), "");
    ConfPathTrie out;
    EXPECT_TRUE(mapper->read(at({"views", "home"}), out, 0));
    EXPECT_EQ(out.find(at({"views", "home"}))->metadata().removable, true);

    CapturedLog log;
    EXPECT_FALSE(write({"views", "home"}, "x"));
    EXPECT_FALSE(mapper->remove(at({"views", "home"})));
    EXPECT_EQ(readWhole(directory.join("views\\home.html")), "<p/>");
    makeDirs(directory.join("nav"), true);
    writeWhole(directory.join("nav\\bad.xml"), "\xFF");
    EXPECT_TRUE(mapper->reload(""));
    EXPECT_EQ(read("nav"), "");
    EXPECT_FALSE(mapper->reload("..\\data"));
    const Str mapperName = "DirectFileConfPathMapper: ";
    const Str refused = Str("ERROR ")
                        << mapperName << where << ": Unsupported path: /nobody/search/views/home\n";
    Str reason;
    reason.appendErrorText(ERROR_NO_UNICODE_TRANSLATION);
    Str expected;
    expected << refused << refused << "INFO " << mapperName << where << ": Found type 'nav' on reload\n"
             << "INFO " << mapperName << where << ": Found 1 new types on reload\n"
             << "ERROR " << mapperName << "Cannot read/decode: " << setup.text(directory.join("nav\\bad.xml"))
             << ": " << reason << "\nWARN " << mapperName << where
             << ": Ignoring reload - directory traversal risk: ..\\data\n";
    EXPECT_EQ(log.text(), expected);
}

TEST_F(JSONConfPathMapperTest, WritesAndFollowsJsonFiles)
{
    makeJson();
    const Pathname file = directory.join("fresh\\one.json");
    EXPECT_TRUE(write({"fresh", "one"}, "{\"a\": 1}"));
    EXPECT_EQ(readWhole(file), "{\"a\": 1}");
    EXPECT_EQ(read("fresh"), "one={\"a\": 1};");
    const ConfFileStatus before = ConfFileStatus::of(file);
    {
        const FileHandle lock = testing::lockOpen(file);
        EXPECT_TRUE(write({"fresh", "one"}, "{\"a\": 1}")) << "what is unchanged is not written";
        EXPECT_FALSE(write({"fresh", "one"}, "{}"));
        EXPECT_FALSE(mapper->remove(at({"fresh", "one"})));
    }
    EXPECT_EQ(ConfFileStatus::of(file), before);
    writeWhole(file, "[]");
    EXPECT_TRUE(write({"fresh", "one"}, "{\"a\": 1}"));
    EXPECT_EQ(readWhole(file), "{\"a\": 1}") << "another program changed it";
    EXPECT_EQ(pathKind(directory.join("fresh\\one.json.tmp")), PathKind::Nothing);
    for (const StrVector &parts : {StrVector{},
                                   {"fresh"},
                                   {"fresh", ""},
                                   {"fresh", "one", "key"},
                                   {"..", "one"},
                                   {"fresh", "one.json:stream"},
                                   {"nul", "one"}}) {
        EXPECT_FALSE(write(parts, "{}"));
    }
    try {
        write({"fresh", "..\\views\\two"}, "{}");
        ADD_FAILURE();
    } catch (const ConfPathDirectoryTraversalException &exception) {
        EXPECT_STREQ(exception.what(), "Directory traversal risk in /nobody/search/fresh/..\\views\\two at "
                                       "segment \"..\\views\\two\"");
    }
    EXPECT_THROW(mapper->remove(at({"fresh", "a/b"})), ConfPathDirectoryTraversalException);

    EXPECT_EQ(notice(file), FileChangeAnswer::NoChange);
    EXPECT_FALSE(mapper->hasChangedSince("fresh", state));
    writeWhole(file, "{}");
    EXPECT_EQ(notice(file), FileChangeAnswer::Settled);
    EXPECT_TRUE(mapper->hasChangedSince("fresh", state));
    EXPECT_EQ(read("fresh"), "one={};");
    EXPECT_TRUE(mapper->remove(at({"fresh", "one"})));
    EXPECT_EQ(read("fresh"), "");
    EXPECT_EQ(notice(file), FileChangeAnswer::NoChange) << "its own removal";
    EXPECT_FALSE(mapper->hasChangedSince("fresh", state));
    EXPECT_EQ(notice(directory.join("loose.json")), FileChangeAnswer::Settled);
    EXPECT_FALSE(mapper->hasChangedSince("fresh", state));
}

TEST_F(JSONConfPathMapperTest, RefusesChangesThatMustStayInMemory)
{
    const Pathname file = directory.join("views\\v.json");
    writeWhole(file, "1");
    makeJson();
    LoaderInfo::instance()->initSettings().inMemoryOnly = true;
    CapturedLog log;
    EXPECT_FALSE(write({"views", "v"}, "2"));
    EXPECT_FALSE(mapper->remove(at({"views", "v"})));
    const Str start = Str("WARN JSONConfPathMapper: ")
                      << where << ": Only in-memory changes may be made; refusing request to ";
    Str expected;
    expected << start << "write to file: " << setup.text(file) << "\n"
             << start << "remove file: " << setup.text(file) << "\n";
    EXPECT_EQ(log.text(), expected);
    EXPECT_EQ(readWhole(file), "1");
}

TEST_F(JSONConfPathMapperTest, MovesLookupTablesInFromTheRunDirectoryAlone)
{
    const Pathname staging = setup.runDir().join("mapper-test");
    ASSERT_TRUE(makeDirs(staging, true));
    const Pathname staged = staging.join("table.csv");
    writeWhole(staged, "a,b\n");
    const Pathname target = directory.join("t.csv");
    make("lookups");
    EXPECT_EQ(mapper->describe(), Str("LookupTableConfPathMapper: ") << where << " (lookups)");
    EXPECT_TRUE(write({"lookups", "t.csv"}, staged.toStr()));
    EXPECT_EQ(readWhole(target), "a,b\n");
    EXPECT_EQ(pathKind(staged), PathKind::Nothing);
    EXPECT_EQ(read("lookups"), Str("t.csv=") << target.toStr() << ";");
    EXPECT_FALSE(write({"views", "t.csv"}, staged.toStr()));
    EXPECT_EQ(notice(target), FileChangeAnswer::NoChange);
    writeWhole(target, "c,d\n");
    EXPECT_EQ(notice(target), FileChangeAnswer::Settled);
    EXPECT_TRUE(mapper->hasChangedSince("lookups", state));

    const Pathname outside = root / "outside.csv";
    writeWhole(outside, "secret");
    const Pathname winding = staging.join("..\\..\\..\\..\\..").join("outside.csv");
    Str missing;
    missing.appendErrorText(ERROR_FILE_NOT_FOUND);
    CapturedLog log;
    const Str beside = setup.runDir().concat("-not\\table.csv").toStr();
    const Str names[] = {outside.toStr(), winding.toStr(), staging.toStr(), beside};
    Str expected;
    for (const Str &name : names) {
        EXPECT_FALSE(write({"lookups", "u.csv"}, name));
        expected << "ERROR LookupTableConfPathMapper: Refuse to copy file from unsafe location: " << name
                 << "\n";
    }
    EXPECT_FALSE(write({"lookups", "u.csv"}, staged.toStr()));
    expected << "ERROR LookupTableConfPathMapper: Failed to move lookup table: " << setup.text(staged)
             << " -> " << setup.text(directory.join("u.csv")) << ": " << missing << "\n";
    EXPECT_EQ(log.text(), expected);
    EXPECT_EQ(readWhole(outside), "secret");
    for (Pathname made = staging; made.size() > 3 && RemoveDirectoryW(asWide(made));) {
        made.dirnameInPlace();
    }
}

TEST_F(JSONConfPathMapperTest, KeepsModelsInOneDirectory)
{
    make("models");
    EXPECT_EQ(mapper->describe(), Str("ModelConfPathMapper: ") << where);
    EXPECT_TRUE(write({"models", "m"}, "weights"));
    EXPECT_EQ(readWhole(directory.join("m.model")), "weights");
    EXPECT_EQ(read("models"), "m=weights;");
}

} // namespace
} // namespace velmox
