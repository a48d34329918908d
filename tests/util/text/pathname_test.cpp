namespace velmox {
namespace {

TEST(Pathname, JoinsBothEncodings)
{
    const std::tuple<Pathname, Str, const char *> cases[] = {
        {u"C:\\x", "a", "C:\\x\\a"},   {u"C:\\x\\", "a", "C:\\x\\a"},       {u"C:\\x", "\\\\a", "C:\\x\\a"},
        {u"C:\\x", "/a", "C:\\x\\/a"}, {u"C:\\x", "D:\\a", "C:\\x\\D:\\a"}, {u"", "name", "\\name"},
        {u"", "c:\\a", "c:\\a"},       {u"", "1:\\a", "\\1:\\a"},           {u"x", "\u00E4", "x\\\u00E4"}};
    for (const auto &[path, component, joined] : cases) {
        EXPECT_EQ(path.join(component).toStr(), joined);
        EXPECT_EQ(path.join(Pathname::fromUtf8(component)).toStr(), joined);
    }
    EXPECT_EQ(Pathname().join("z:\\a"), u"z:\\a");
    EXPECT_EQ(Pathname().join(Pathname(u"z:\\a")), u"\\z:\\a");
    EXPECT_EQ(Pathname().join(Pathname(u"Z:\\a")), u"\\Z:\\a");

    Pathname path;
    EXPECT_EQ(path.append("C:\\"), 0u);
    EXPECT_EQ(path.append(u"\\abc"), 3u);
    EXPECT_EQ(path.append("def"), 7u);
    EXPECT_EQ(path, u"C:\\abc\\def");
    EXPECT_EQ(path.concat(".tmp"), path.concat(Str(".tmp")));
    EXPECT_EQ(path.concat(u"\u00E4"), u"C:\\abc\\def\u00E4");
}

TEST(Pathname, TakesApart)
{
    const std::tuple<Pathname, const char16_t *, const char16_t *, const char *, const char *> cases[] = {
        // the path, its folder, last component, stem and extension
        {u"a", u"", u"a", "a", ""},
        {u"", u"", u"", "", ""},
        {u"\\", u"\\", u"\\", "\\", ""},
        {u"C:", u"C:", u"C:\\", "C:\\", ""},
        {u"C:\\", u"C:\\", u"C:\\", "C:\\", ""},
        {u"C:\\a", u"C:\\", u"a", "a", ""},
        {u"C:a.b", u"C:", u"a.b", "a", "b"},
        {u"C:\\\\a", u"C:\\", u"a", "a", ""},
        {u"C:\\a\\\\b.tar.gz\\\\", u"C:\\a", u"b.tar.gz", "b.tar", "gz"},
        {u"\\\\server\\share", u"\\\\server", u"share", "share", ""},
        {u"C:\\a/b.c/", u"C:\\", u"b.c", "b", "c"},
        {u"d\\.hidden", u"d", u".hidden", ".hidden", ""},
        {u"d\\.hidden.x", u"d", u".hidden.x", ".hidden", "x"},
        {u"a.", u"", u"a.", "a", ""}};
    for (auto [path, folder, last, stem, extension] : cases) {
        EXPECT_EQ(path.dirname(), folder) << path.toStr().c_str();
        EXPECT_EQ(path.basename(), last) << path.toStr().c_str();
        EXPECT_EQ(path.stem(), stem) << path.toStr().c_str();
        EXPECT_EQ(path.extension(), extension) << path.toStr().c_str();
        path.dirnameInPlace();
        EXPECT_EQ(path, folder);
    }
}

TEST(Pathname, ClassifiesAndTidiesSlashes)
{
    const std::tuple<Pathname, bool, bool> kinds[] = {
        {u"", false, false},    {u"a", false, false},     {u"C:", false, false},  {u"C:a", false, false},
        {u"C:\\", true, false}, {u"z:/a", true, false},   {u"\\a", true, false},  {u"/", true, false},
        {u"\\\\", true, true},  {u"/\\host", true, true}, {u"1:\\", false, false}};
    for (const auto &[path, absolute, unc] : kinds) {
        EXPECT_EQ(path.isAbsolute(), absolute) << path.toStr().c_str();
        EXPECT_EQ(path.isUnc(), unc) << path.toStr().c_str();
    }
    const std::tuple<Pathname, const char16_t *, const char16_t *> cases[] = {
        // the path; with the slashes at its end stripped; with runs of them collapsed
        {u"C:\\", u"C:\\", u"C:\\"},
        {u"C:\\a\\\\", u"C:\\a", u"C:\\a\\"},
        {u"C:\\\\", u"C:\\", u"C:\\"},
        {u"\\", u"\\", u"\\"},
        {u"\\\\\\a\\\\\\b", u"\\\\\\a\\\\\\b", u"\\\\a\\b"},
        {u"a/", u"a/", u"a/"}};
    for (const auto &[path, stripped, collapsed] : cases) {
        Pathname copies[] = {path, path};
        copies[0].stripTrailingSlashes();
        copies[1].collapseSlashes();
        EXPECT_EQ(copies[0], stripped);
        EXPECT_EQ(copies[1], collapsed);
    }
    Pathname ensured(u"C:\\a");
    for (int twice = 0; twice < 2; ++twice) {
        ensured.ensureTrailingSlash();
        EXPECT_EQ(ensured, u"C:\\a\\");
    }
    std::vector<Pathname> pieces;
    Pathname(u"C:\\a/b\\\\c\\").split(pieces);
    EXPECT_EQ(pieces, (std::vector<Pathname>{u"C:", u"a/b", u"", u"c", u""}));
}

} // namespace
} // namespace velmox
