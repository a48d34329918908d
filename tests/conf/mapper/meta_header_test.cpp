#include "conf/mapper/meta_header.h"
#include "tests/support/captured_log.h"

namespace velmox {
namespace {

using testing::CapturedLog;

const ConfPathBase kSearch("nobody", "search");

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
        {"inputs/", "/nobody/search/inputs", "inputs"},
        {"inputs/a/b", "/nobody/search/inputs/a/b", nullptr},
        {"inputs/monitor%3A%2F%2F%2Fvar", "/nobody/search/inputs/monitor:///var", nullptr},
        {"inputs/a+b%2b%5B%5d", "/nobody/search/inputs/a b+[]", "inputs/a%20b%2B%5B%5D"},
        {"inputs/100%", "/nobody/search/inputs/100%", "inputs/100%25"},
        {"inputs/\xC3\xA4~._-", "/nobody/search/inputs/\xC3\xA4~._-", "inputs/%C3%A4~._-"},
        {"inputs//k", "/nobody/search/inputs//k", nullptr},
        {"inputs/a%0Ab", "/nobody/search/inputs/a\nb", nullptr},
        {"/Anna/other/inputs", "/anna/other/inputs", "/anna/other/inputs"},
        {"/anna/other/inputs/%2F/", "/anna/other/inputs//", "/anna/other/inputs/%2F"},
        {"/NOBODY/search/inputs", "/nobody/search/inputs", "inputs"},
    };
    for (const auto &[name, path, written] : kCases) {
        const auto parsed = parseMetaHeader(name, kSearch);
        ASSERT_TRUE(parsed) << name;
        EXPECT_EQ(parsed->toStr(), path) << name;
        EXPECT_EQ(metaHeader(*parsed, kSearch), std::optional<Str>(written ? written : name)) << name;
    }
    // Users count in any case.
    EXPECT_EQ(metaHeader(ConfPathBase("Nobody", "search", {"x"}), kSearch), std::optional<Str>("x"));
}

TEST(MetaHeader, RefusesWhatIsNoPathOfAnItem)
{
    for (const char *name : {"/", "/a", "/a/b", "/a/b/"}) {
        CapturedLog log;
        EXPECT_FALSE(parseMetaHeader(name, kSearch)) << name;
        EXPECT_EQ(log.text(), Str("ERROR ConfObjectManagerDB: Absolute path has too few path parts: ")
                                  << name << "\n");
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

TEST(MetaHeader, KeepsAPartThatDecodesToNoText)
{
    CapturedLog log;
    const auto path = parseMetaHeader("inputs/%FFx+y/k", kSearch);
    ASSERT_TRUE(path);
    EXPECT_EQ(path->parts(), (StrVector{"inputs", "%FFx+y", "k"}));
    EXPECT_EQ(log.text(),
              "ERROR ConfObjectManagerDB: Path component '%FFx+y' contains invalid UTF-8 encoding\n");
}

} // namespace
} // namespace velmox
