#include "conf/file/conf_line_reader.h"
#include "conf/mapper/meta_file.h"
#include "tests/support/captured_log.h"
#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::MemoryReader;

const ConfPathBase kSearch("nobody", "search");

ConfPathTrie parsed(const char *text)
{
    MemoryReader stream(text);
    ConfLineReader reader(stream, Pathname(u"x.meta"));
    ConfPathTrie tree;
    readMetaText(reader, kSearch, tree);
    return tree;
}

const ConfPathTrie *nodeAt(const ConfPathTrie &tree, StrVector parts)
{
    return tree.find(ConfPathBase("nobody", "search", std::move(parts)));
}

TEST(MetaFile, PutsSettingsOntoTheNodesOfTheirPaths)
{
    const ConfPathTrie tree = parsed("# of the app\n"
                                     "[]\n"
                                     "access = read : [ * ], write : [ Admin, power ]\n"
                                     " export=system \n"
                                     "import = a,  b ,, c\n"
                                     "[inputs]\n"
                                     "owner = Anna\n"
                                     "export = system\n"
                                     "export = none\n"
                                     "[inputs/x]\n"
                                     "modtime = 1234567890.25\n"
                                     "version = 9\n"
                                     "data = \n"
                                     "[inputs/x/k]\n"
                                     "data = the value\n"
                                     "[/Anna/other/inputs]\n"
                                     "owner =\n"
                                     "modtime = 7\n");
    const ConfPathTrie *const app = nodeAt(tree, {});
    ASSERT_TRUE(app && app->hasMetadata());
    EXPECT_EQ(app->metadata().toStr(),
              "{ read : [ * ], write : [ admin, power ] }, export: global, imports: { a b c }");
    const ConfPathTrie *const type = nodeAt(tree, {"inputs"});
    ASSERT_TRUE(type && type->hasMetadata());
    EXPECT_EQ(type->metadata().toStr(), "{  }, export: app, owner: anna");
    const ConfPathTrie *const stanza = nodeAt(tree, {"inputs", "x"});
    ASSERT_TRUE(stanza && stanza->hasMetadata());
    Str time;
    stanza->metadata().modtime.value().toUnixStr(time, 7);
    EXPECT_EQ(time, "1234567890.2500000");
    EXPECT_FALSE(stanza->hasData() || stanza->metadata().version || stanza->metadata().removable);
    const ConfPathTrie *const key = nodeAt(tree, {"inputs", "x", "k"});
    ASSERT_TRUE(key && key->hasData());
    EXPECT_EQ(key->data(), "the value");
    EXPECT_FALSE(key->hasMetadata());
    const ConfPathTrie *const other = tree.find(ConfPathBase("anna", "other", {"inputs"}));
    ASSERT_TRUE(other && other->hasMetadata());
    EXPECT_FALSE(other->metadata().owner);
}

TEST(MetaFile, PassesOverWhatIsWrong)
{
    static constexpr struct
    {
        const char *text;
        const char *log;
    } kCases[] = {
        {"a = b\n", "WARN ConfObjectManagerDB: x.meta, line 1: Setting does not belong to a stanza: a = b\n"},
        {"[x]\n[/a/b]\nowner = c\n",
         "ERROR ConfObjectManagerDB: Absolute path has too few path parts: /a/b\n"
         "WARN ConfObjectManagerDB: x.meta, line 2: Error parsing stanza header: [/a/b]\n"
         "WARN ConfObjectManagerDB: x.meta, line 3: Setting does not belong to a stanza: owner = c\n"},
        {"[x]\nexport = app\n", "WARN ConfObjectManagerDB: Ignoring invalid export: app\n"},
        {"[x]\nexport = System\n", "WARN ConfObjectManagerDB: Ignoring invalid export: System\n"},
        {"[x]\nOwner = a\n", "WARN ConfObjectManagerDB: Ignoring invalid meta setting: Owner\n"},
        {"[x]\nmodtime = soon\n",
         "WARN ConfObjectManagerDB: x.meta, line 2: Error parsing setting: modtime = soon\n"},
        {"[x]\nmodtime = 1.2s\n",
         "WARN ConfObjectManagerDB: x.meta, line 2: Error parsing setting: modtime = 1.2s\n"},
        {"[x]\naccess = read : x\n",
         "WARN ConfAcl: Permission parsing failed at 7 in string: read : x\n"
         "WARN ConfObjectManagerDB: Error parsing permissions: read : x\n"
         "WARN ConfObjectManagerDB: x.meta, line 2: Error parsing setting: access = read : x\n"},
    };
    for (const auto &[text, expected] : kCases) {
        CapturedLog log;
        const ConfPathTrie tree = parsed(text);
        EXPECT_EQ(log.text(), expected);
        const ConfPathTrie *const node = nodeAt(tree, {"x"});
        EXPECT_TRUE(!node || !node->hasMetadata() || node->metadata().empty()) << text;
    }
}

TEST(MetaFile, WritesWhatItReads)
{
    ConfPathMetadata metadata;
    EXPECT_TRUE(metaSettings(metadata).empty());
    metadata.access = ConfAcl::parse("read : [ a%2Cb ]");
    metadata.exported = ConfExport::System;
    metadata.setOwner("Anna");
    metadata.setImports({"a", "b"});
    metadata.modtime.emplace().setUnixSeconds(5, 1);
    metadata.removable = true;
    metadata.version = std::make_shared<const Str>("1");
    Str text = "[x]\n";
    for (const auto &[key, value] : metaSettings(metadata)) {
        text << key << " = " << value << "\n";
    }
    EXPECT_EQ(text, "[x]\naccess = read : [ a%2Cb ]\nexport = system\nimport = a, b\nowner = anna\n"
                    "modtime = 5.0000001\n");
    metadata.removable.reset();
    metadata.version.reset();
    const ConfPathTrie tree = parsed(text.c_str());
    EXPECT_EQ(nodeAt(tree, {"x"})->metadata(), metadata);
}

} // namespace
} // namespace velmox
