#include "util/pathname.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

Str join8(const char16_t *path, const char *component)
{
    return Pathname(path).join(component).toStr();
}

Str join16(const char16_t *path, const char16_t *component)
{
    return Pathname(path).join(Pathname(component)).toStr();
}

TEST(PathnameTest, JoinsBothEncodings)
{
    const struct
    {
        const char16_t *path;
        const char *component;
        const char16_t *wideComponent;
        const char *joined;
    } cases[] = {
        {u"C:\\x", "a", u"a", "C:\\x\\a"},
        {u"C:\\x\\", "a", u"a", "C:\\x\\a"},
        {u"C:\\x", "\\\\a", u"\\\\a", "C:\\x\\a"},
        {u"C:\\x", "/a", u"/a", "C:\\x\\/a"},
        {u"C:\\x", "D:\\a", u"D:\\a", "C:\\x\\D:\\a"},
        {u"C:\\x", "\\", u"\\", "C:\\x\\"},
        {u"C:\\x", "", u"", "C:\\x"},
        {u"C:\\x/", "a", u"a", "C:\\x/\\a"},
        {u"", "", u"", ""},
        {u"", "name", u"name", "\\name"},
        {u"", "c:\\a", u"c:\\a", "c:\\a"},
        {u"", "Y:", u"Y:", "Y:"},
        {u"", "1:\\a", u"1:\\a", "\\1:\\a"},
        {u"x", "\xC3\xA4", u"\u00E4", "x\\\xC3\xA4"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(join8(c.path, c.component), c.joined) << c.joined;
        EXPECT_EQ(join16(c.path, c.wideComponent), c.joined) << c.joined;
    }
    EXPECT_EQ(join8(u"", "z:\\a"), "z:\\a");
    EXPECT_EQ(join16(u"", u"z:\\a"), "\\z:\\a");
    EXPECT_EQ(join16(u"", u"Z:\\a"), "\\Z:\\a");
}

TEST(PathnameTest, AppendTellsWhereTheComponentWentIn)
{
    Pathname path;
    EXPECT_EQ(path.append("C:\\"), 0u);
    EXPECT_EQ(path.append(u"\\abc"), 3u);
    EXPECT_EQ(path.append("def"), 7u);
    EXPECT_EQ(path.append("", 0), 10u);
    EXPECT_EQ(path, u"C:\\abc\\def");
}

TEST(PathnameTest, ConcatenatesWithoutASeparator)
{
    const Pathname path(u"C:\\x");
    EXPECT_EQ(path.concat(".tmp"), u"C:\\x.tmp");
    EXPECT_EQ(path.concat(Str("\\y")), u"C:\\x\\y");
    EXPECT_EQ(path.concat(u"\u00E4"), u"C:\\x\u00E4");
}

TEST(PathnameTest, TakesApart)
{
    const struct
    {
        const char16_t *path;
        const char16_t *dirname;
        const char16_t *basename;
        const char *stem;
        const char *extension;
    } cases[] = {
        {u"C:\\a", u"C:\\", u"a", "a", ""},
        {u"a", u"", u"a", "a", ""},
        {u"\\a", u"\\", u"a", "a", ""},
        {u"", u"", u"", "", ""},
        {u"\\", u"\\", u"\\", "\\", ""},
        {u"C:", u"C:", u"C:\\", "C:\\", ""},
        {u"C:\\", u"C:\\", u"C:\\", "C:\\", ""},
        {u"C:a.b", u"C:", u"a.b", "a", "b"},
        {u"C:\\a\\\\b.tar.gz\\\\", u"C:\\a", u"b.tar.gz", "b.tar", "gz"},
        {u"C:\\\\a", u"C:\\", u"a", "a", ""},
        {u"\\\\server\\share", u"\\\\server", u"share", "share", ""},
        {u"C:\\a/b.c/", u"C:\\", u"b.c", "b", "c"},
        {u"d\\.hidden", u"d", u".hidden", ".hidden", ""},
        {u"d\\.hidden.x", u"d", u".hidden.x", ".hidden", "x"},
        {u"a.b\\c", u"a.b", u"c", "c", ""},
        {u"a.", u"", u"a.", "a", ""},
    };
    for (const auto &c : cases) {
        const Pathname path(c.path);
        EXPECT_EQ(path.dirname(), c.dirname) << path.toStr().c_str();
        EXPECT_EQ(path.basename(), c.basename) << path.toStr().c_str();
        EXPECT_EQ(path.stem(), c.stem) << path.toStr().c_str();
        EXPECT_EQ(path.extension(), c.extension) << path.toStr().c_str();
        Pathname inPlace(path);
        inPlace.dirnameInPlace();
        EXPECT_EQ(inPlace, c.dirname) << path.toStr().c_str();
    }
}

TEST(PathnameTest, Classifies)
{
    const struct
    {
        const char16_t *path;
        bool absolute;
        bool unc;
    } cases[] = {
        {u"", false, false},    {u"a", false, false},     {u"C:", false, false},   {u"C:a", false, false},
        {u"C:\\", true, false}, {u"z:/a", true, false},   {u"\\a", true, false},   {u"/", true, false},
        {u"\\\\", true, true},  {u"/\\host", true, true}, {u"1:\\", false, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Pathname(c.path).isAbsolute(), c.absolute) << Pathname(c.path).toStr().c_str();
        EXPECT_EQ(Pathname(c.path).isUnc(), c.unc) << Pathname(c.path).toStr().c_str();
    }
}

TEST(PathnameTest, TidiesSlashes)
{
    const struct
    {
        const char16_t *path;
        const char16_t *stripped;
        const char16_t *collapsed;
        const char16_t *ensured;
    } cases[] = {
        {u"C:\\", u"C:\\", u"C:\\", u"C:\\"},
        {u"C:\\a\\\\", u"C:\\a", u"C:\\a\\", u"C:\\a\\\\"},
        {u"C:\\\\", u"C:\\", u"C:\\", u"C:\\\\"},
        {u"\\", u"\\", u"\\", u"\\"},
        {u"\\\\\\a\\\\\\b", u"\\\\\\a\\\\\\b", u"\\\\a\\b", u"\\\\\\a\\\\\\b\\"},
        {u"", u"", u"", u"\\"},
        {u"a/", u"a/", u"a/", u"a/\\"},
    };
    for (const auto &c : cases) {
        Pathname stripped(c.path);
        stripped.stripTrailingSlashes();
        EXPECT_EQ(stripped, c.stripped);
        Pathname collapsed(c.path);
        collapsed.collapseSlashes();
        EXPECT_EQ(collapsed, c.collapsed);
        Pathname ensured(c.path);
        ensured.ensureTrailingSlash();
        EXPECT_EQ(ensured, c.ensured);
    }
}

TEST(PathnameTest, SplitsAtBackslashes)
{
    std::vector<Pathname> pieces;
    Pathname(u"C:\\a/b\\\\c\\").split(pieces);
    EXPECT_EQ(pieces, (std::vector<Pathname>{u"C:", u"a/b", u"", u"c", u""}));
    Pathname().split(pieces);
    EXPECT_EQ(pieces.size(), 5u);
}

} // namespace
} // namespace velmox
