namespace velmox {
namespace {

TEST(Str, HoldsFifteenBytesInline)
{
    for (const std::size_t length : {0, 15, 16, 40}) {
        const Str text(length, 'x');
        const Str copy = text;
        EXPECT_EQ(copy.c_str()[length], '\0');
        EXPECT_EQ(copy.capacity() == 15, length <= 15);
    }
}

TEST(Str, RefusesPositionsPastTheEndAndImpossibleLengths)
{
    Str text("abc");
    // Volatile, or the compiler warns of what is tried here.
    const volatile std::size_t tooLong = Str::npos - 4;
    const volatile std::size_t past = 4;
    const auto refuses = [](const char *message, auto operation) { EXPECT_EQ(raisedBy(operation), message); };
    refuses("invalid string position", [&] { (void)text.substr(past); });
    refuses("invalid string position", [&] { text.erase(past); });
    refuses("invalid string position", [&] { text.replace(past, 0, "x"); });
    refuses("string too long", [&] { text.reserve(tooLong); });
    refuses("string too long", [&] { text.append(tooLong, 'x'); });
    refuses("string too long", [&] { Str("x", tooLong); });
    refuses("string too long", [&] { text.assign(std::string_view("x", tooLong)); });
    EXPECT_EQ(text.substr(3), "");
    EXPECT_EQ(text, "abc");
}

TEST(Str, FindsBytesAndCompares)
{
    const Str text("  \xFFyz");
    const std::tuple<CharSet, std::size_t, bool, int> cases[] = {
        {CharSet::blanks(), 0, true, 0},   {CharSet::blanks(), 0, false, 2},
        {CharSet("\xFF"), 0, true, 2},     {CharSet::blanks(), 2, true, -1},
        {CharSet::blanks(), 5, false, -1}, {CharSet::blanks(), 6, false, -1}};
    for (const auto &[set, from, in, found] : cases) {
        EXPECT_EQ(text.findFirst(set, from, in), found) << from << in;
    }
    EXPECT_TRUE(Str("ab").equals("ab") && !Str("ab\0c", 4).equals("ab") && text.startsWith("  \xFFzz", 3));
}

TEST(Str, ReplacesLeftToRightBehindWhatItPutIn)
{
    const std::tuple<Str, const char *, const char *, std::size_t, const char *> cases[] = {
        {"aaaa", "aa", "a", 2, "aa"}, {"aaa", "aa", "b", 1, "ba"},    {"a.b.", ".", "..", 2, "a..b.."},
        {"abc", "", "x", 0, "abc"},   {"abc", "abcd", "x", 0, "abc"}, {"abc", "abc", "", 1, ""}};
    for (auto [text, find, with, count, result] : cases) {
        EXPECT_EQ(text.replaceAll(find, with), count) << find;
        EXPECT_EQ(text, result);
    }
    Str self("ab");
    EXPECT_EQ(self.replaceAll(self, "x"), 1u);
    EXPECT_EQ(self, "x");
    Str path("a/b\\c/");
    EXPECT_EQ(path.replaceChars(CharSet("/\\"), '_'), 3u);
    EXPECT_EQ(path, "a_b_c_");
}

TEST(Str, TrimsTheChosenEndsAndUnquotesPairs)
{
    for (const char *text : {" \tab c\t ", "ab c", "", " ", "\t \t"}) {
        EXPECT_EQ(Str(text).trimmed(), Str(text).contains("a") ? "ab c" : "");
    }
    EXPECT_EQ(Str(" a ").trimmed(CharSet::blanks(), true, false), "a ");
    EXPECT_EQ(Str(" a ").trimmed(CharSet::blanks(), false, true), " a");

    const std::pair<Str, const char *> quotes[] = {
        {"\"a\"", "a"}, {"\"\"", ""}, {"\"", "\""}, {"\"a", "\"a"}, {"a\"", "a\""}, {"", ""}, {"'a'", "'a'"}};
    for (auto [text, plain] : quotes) {
        text.unquote('"');
        EXPECT_EQ(text, plain);
    }
}

TEST(Str, WritesNumbersAsTheirPlainConversions)
{
    Str text;
    text << Str("s") << "c" << 'b' << u"\u00E4" << StrSegment("seg") << std::runtime_error("what") << ' '
         << true << false << ' ' << static_cast<short>(-32768) << ' ' << static_cast<unsigned short>(65535)
         << ' ' << -2147483647 - 1 << ' ' << 4294967295u << ' ' << -5l << ' ' << 5ul << ' '
         << -9223372036854775807ll - 1 << ' ' << 18446744073709551615ull << ' ' << 1.5;
    EXPECT_EQ(text, "scb\u00E4segwhat 10 -32768 65535 -2147483648 4294967295 -5 5 -9223372036854775808 "
                    "18446744073709551615 1.500000");
    EXPECT_EQ(Str::concat("left", "right"), "leftright");
}

TEST(StrUtf8, AcceptsExactlyTheWellFormedCharacters)
{
    // Each is the first or the last of its form.
    for (const Str text : {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xEC\xBF\xBF", "\xED\x80\x80",
                           "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80",
                           "\xF3\xBF\xBF\xBF", "\xF4\x8F\xBF\xBF", "a\xC2\x80z\xE0\xA0\x80"}) {
        EXPECT_TRUE(Str::isValidUtf8(text.data(), text.size())) << PrintToString(text);
    }
    for (const Str text :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF", "\xE1\x80",
          "\xE1\x80\x7F", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF1\x80\x80", "\xF1\x80\x80\xC0",
          "\xF1\x80\x41\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        const Str behind = Str::concat("ok ", text);
        EXPECT_FALSE(Str::isValidUtf8(text.data(), text.size())) << PrintToString(text);
        EXPECT_FALSE(Str::isValidUtf8(behind.data(), behind.size())) << PrintToString(text);
    }
}

TEST(StrUtf8, DecodesUrls)
{
    const std::pair<Str, Str> cases[] = {{"", ""},
                                         {"a+b%20c", "a b c"},
                                         {"%41%4a%4A%2b", "AJJ+"},
                                         {"%4g%g4%", "%4g%g4%"},
                                         {"%%41", "%A"},
                                         {"%c3%A4\xC3\xB6", "\u00E4\u00F6"},
                                         {"a%00b", Str("a\0b", 3)}};
    for (auto [text, decoded] : cases) {
        EXPECT_TRUE(text.urlDecode()) << decoded.c_str();
        EXPECT_EQ(text, decoded);
    }
    for (const char *bad : {"%ff", "x+%c3", "\xFF", "%ed%a0%80"}) {
        Str text(bad);
        EXPECT_FALSE(text.urlDecode()) << bad;
        EXPECT_EQ(text, bad) << "the text stays as it was";
    }
}

TEST(Bridges, CarryTextBothWaysAndSubstituteWhatIsIllFormed)
{
    const std::pair<std::u16string_view, std::string_view> cases[] = {
        {u"", ""},
        {u"a\0b"sv, "a\0b"sv},
        {u"\u007F\u0080\u07FF\u0800\uFFFD\uFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xEF\xBF\xBF"},
        {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}};
    for (const auto &[wide, narrow] : cases) {
        EXPECT_EQ(Str::fromUtf16(wide), narrow);
        EXPECT_EQ(WideStr::fromUtf8(narrow), wide);
    }
    const std::pair<std::u16string, const char *> halves[] = {{{u'a', 0xD800, u'b'}, "a\uFFFDb"},
                                                              {{0xDC00, u'b'}, "\uFFFDb"},
                                                              {{u'a', 0xDBFF}, "a\uFFFD"},
                                                              {{0xD800, 0xD800, 0xDC00}, "\uFFFD\U00010000"}};
    for (const auto &[wide, narrow] : halves) {
        EXPECT_EQ(Str::fromUtf16(wide), narrow);
    }
    const std::pair<const char *, const char16_t *> bytes[] = {{"a\x80z", u"a\uFFFDz"},
                                                               {"\xC3(", u"\uFFFD("},
                                                               {"\xF0\x9F\x98|", u"\uFFFD|"},
                                                               {"\xC0\xAF", u"\uFFFD\uFFFD"}};
    for (const auto &[narrow, wide] : bytes) {
        EXPECT_EQ(WideStr::fromUtf8(narrow), wide);
    }
}

TEST(Bridges, AppendTextOfAnyLengthAndStopWhereTheyAreTold)
{
    Str narrow("<");
    narrow.appendUtf16(u"abc", 2);
    EXPECT_EQ(narrow, "<ab");
    WideStr wide(u"<");
    wide.appendUtf8("abc", 2);
    EXPECT_EQ(wide, u"<ab");
    for (const std::size_t length : {0, 511, 512, 513, 100000}) {
        const WideStr euros(length, u'\u20AC');
        EXPECT_TRUE(WideStr::fromUtf8(Str::fromUtf16(euros)) == euros) << length;
    }
}

} // namespace
} // namespace velmox
