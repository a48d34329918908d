#include "conf/file/conf_line_reader.h"
#include "conf/mapper/meta_file.h"
#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

const ConfPathBase kSearch("nobody", "search");

ConfPathTrie parsed(std::string_view text)
{
    MemoryReader stream{std::string(text)};
    ConfLineReader reader(stream, Pathname(u"x.meta"));
    ConfPathTrie tree;
    readMetaText(reader, kSearch, tree);
    return tree;
}

Str settingsText(const ConfPathMetadata &metadata)
{
    Str text;
    for (const auto &[key, value] : metaSettings(metadata)) {
        text << key << " = " << value << "\n";
    }
    return text;
}

TEST(MetaFile, PutsSettingsOntoTheNodesOfTheirPaths)
{
    Str tree;
    parsed(R"(# of the app
[]
access = read : [ * ], write : [ Admin, power ]
 export=system 
import = a,  b ,, c
[inputs]
owner = Anna
export = system
export = none
[inputs/x]
version = 9
data = 
[inputs/x/k]
data = the value
[/Anna/other/inputs]
owner =
)")
        .dump(&tree);
    EXPECT_EQ(tree, R"(anna
  other
    inputs {  }
nobody
  search { read : [ * ], write : [ admin, power ] }, export: global, imports: { a b c }
    inputs {  }, export: app, owner: anna
      x {  }
        k = the value
)");
}

TEST(MetaFile, PassesOverWhatIsWrong)
{
    static constexpr const char *kCases[][2] = {
        {"a = b\n", "x.meta, line 1: Setting does not belong to a stanza: a = b\n"},
        {"[x]\n[/a/b]\nowner = c\n", "x.meta, line 2: Error parsing stanza header: [/a/b]\n"},
        {"[x]\nexport = app\n", "Ignoring invalid export: app\n"},
        {"[x]\nOwner = a\n", "Ignoring invalid meta setting: Owner\n"},
        {"[x]\nmodtime = 1.2s\n", "x.meta, line 2: Error parsing setting: modtime = 1.2s\n"},
        {"[x]\naccess = read : x\n", "Error parsing permissions: read : x\n"},
    };
    for (const auto &[text, expected] : kCases) {
        const CapturedLog log;
        const ConfPathTrie tree = parsed(text);
        EXPECT_TRUE(log.text().contains(expected)) << log.text().c_str();
        const ConfPathTrie *const node = tree.find(ConfPathBase("nobody", "search", {"x"}));
        EXPECT_TRUE(!node || !node->hasMetadata() || node->metadata().empty()) << text;
    }
}

TEST(MetaFile, WritesWhatItReads)
{
    static constexpr const char *kCases[][2] = {
        {"access = read:[a%2cb]\nexport = system\nimport = a,b\nowner = Anna\nmodtime = 5.0000001\nversion = "
         "1\n",
         "access = read : [ a%2Cb ]\nexport = system\nimport = a, b\nowner = anna\nmodtime = 5.0000001\n"},
        {"modtime = 1234567890.25\n", "modtime = 1234567890.2500000\n"},
    };
    for (const auto &[text, written] : kCases) {
        const ConfPathTrie tree = parsed(Str("[x]\nowner =\n") << text);
        ConfPathMetadata metadata = tree.find(ConfPathBase("nobody", "search", {"x"}))->metadata();
        metadata.removable = true;
        EXPECT_EQ(settingsText(metadata), written);
    }
}

TEST(MetaHeader, NamesAndPathsTurnIntoEachOther)
{
    static constexpr struct
    {
        const char *name;
        const char *path;
        const char *written; ///< null when as read
    } kCases[] = {
        {"", "/nobody/search", nullptr},
        {"inputs", "/nobody/search/inputs", nullptr},
        {"inputs/monitor%3A%2F%2F%2Fvar", "/nobody/search/inputs/monitor:///var", nullptr},
        {"inputs/a+b%2b%5B%5d", "/nobody/search/inputs/a b+[]", "inputs/a%20b%2B%5B%5D"},
        {"inputs/\xC3\xA4~._-", "/nobody/search/inputs/\xC3\xA4~._-", "inputs/%C3%A4~._-"},
        {"/Anna/other/inputs", "/anna/other/inputs", "/anna/other/inputs"},
        {"/NOBODY/search/inputs", "/nobody/search/inputs", "inputs"},
    };
    for (const auto &[name, path, written] : kCases) {
        const auto parsed = parseMetaHeader(name, kSearch);
        ASSERT_TRUE(parsed) << name;
        EXPECT_EQ(parsed->toStr(), path) << name;
        EXPECT_EQ(metaHeader(*parsed, kSearch), std::optional<Str>(written ? written : name)) << name;
    }
    // What decodes to no text is kept as it stands.
    EXPECT_EQ(parseMetaHeader("inputs/%FFx+y/k", kSearch)->parts(), (StrVector{"inputs", "%FFx+y", "k"}));
    // Users count in any case.
    EXPECT_EQ(metaHeader(ConfPathBase("Nobody", "search", {"x"}), kSearch), std::optional<Str>("x"));
}

TEST(MetaHeader, RefusesWhatIsNoPathOfAnItem)
{
    for (const char *name : {"/", "/a", "/a/b", "/a/b/"}) {
        EXPECT_FALSE(parseMetaHeader(name, kSearch)) << name;
    }
    Str deep = "a";
    for (int level = 1; level < 64; ++level) {
        deep << "/a";
    }
    EXPECT_TRUE(parseMetaHeader(deep, kSearch));
    EXPECT_FALSE(parseMetaHeader(deep << "/a", kSearch));
    for (const ConfPathBase &path :
         {ConfPathBase("anna", "search"), ConfPathBase("nobody", "search", {"a", ""}),
          ConfPathBase("nobody", "search", {"", "a"})}) {
        EXPECT_FALSE(metaHeader(path, kSearch)) << path.toStr().view();
    }
}

} // namespace
} // namespace velmox
