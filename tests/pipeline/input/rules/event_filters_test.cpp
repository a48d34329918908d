#include "pipeline/input/rules/event_filters.h"

namespace velmox {
namespace {

TEST(RegMonEventFilter, JudgesTypeProcessAndPath)
{
    const struct
    {
        const char *proc, *hive, *type, *process, *keyPath, *word;
        bool matches;
    } rows[] = {
        {".*", R"(\\registry\\user\\.*)", "set", "p", R"(\registry\user\s-1-5-18\x)", "set", true},
        {".*", R"(\\registry\\user\\.*)", "set", "p", R"(\registry\user)", "set", false},
        {".*", R"(\\REGISTRY\\User\\.*)", "SET", "p", R"(\registry\user\x)", "set", true},
        {".*", ".*", "set", "", "x", "reset", true},
        {".*", ".*", "^set$", "", "x", "reset", false},
        {"reg", ".*", "set", R"(c:\regedit.exe)", "x", "set", true},
        {"[^\\x00-\\xff]", ".*", "set", R"(c:\regedit.exe)", "x", "set", false},
        // Folding turns the class of non-blanks into the class of blanks.
        {".*", R"(A\S+)", "set", "", "a  ", "set", true},
        {".*", R"(A\S+)", "set", "", "abc", "set", false},
        {".*", "\xC3\x84.", "set", "", "\xC3\xA4\xC3\xB6", "set", true},
        // Process events have no path.
        {".*", ".*", "image", "p", "", "image", true},
        {".*", "x+", "image", "p", "", "image", false},
        // A path that is the pattern itself.
        {".*", R"(\\Registry\\x+)", ".*", "", R"(\\registry\\x+)", "set", true},
        {".*", R"(\\Registry\\x+)", ".*", "", R"(\registry\xx)", "set", true},
        {".*", R"(\\Registry\\x+)", ".*", "", R"(\registry\x+)", "set", false},
    };
    for (const auto &row : rows) {
        RegMonEventFilter filter("f", row.proc, row.hive, row.type);
        EXPECT_EQ(filter.matches({row.process, row.keyPath, row.word}), row.matches) << &row - rows;
    }
    EXPECT_THROW(RegMonEventFilter("f", ".*", "[x", ".*"), RegexException);
}

// Three and more groups, each repeated, ask PCRE for a step deeper, or back, at each letter of a path. As
// process and as key, a pattern gives its verdict all the same, and matches nothing where it comes to a
// limit.
TEST(RegMonEventFilter, OutlivesWhatAPatternCanAskOnTheLongestPath)
{
    const auto nested = [](Str pattern, int depth) {
        while (depth-- > 0) {
            pattern = Str::fromFormat("(%s)*", pattern.c_str());
        }
        return Str::fromFormat("^%s$", pattern.c_str());
    };
    constexpr std::size_t kLongest = 32767;
    const struct
    {
        Str pattern;
        char16_t unit;
        bool matches;
    } rows[] = {
        {nested("a|b", 3), u'a', true},
        {nested("(?:(a)(b)?|c+?)", 5), u'a', true},
        {nested("a", 100), u'a', true},
        {nested(".", 4), u'\x4E2D', true},
        {nested("\xE4\xB8\xAD", 4), u'a', false},
        // More steps than there are in a lifetime, and more than machine code is given.
        {"^(((a+)+)+)+x", u'a', false},
        {"^.*.*.*x", u'a', false},
    };
    for (const auto &row : rows) {
        const Str path = Str::fromUtf16(std::u16string(kLongest, row.unit));
        EXPECT_EQ(RegMonEventFilter("f", ".*", row.pattern, ".*").matches({"", path, "set"}), row.matches)
            << row.pattern.c_str();
        EXPECT_EQ(RegMonEventFilter("f", row.pattern, ".*", ".*").matches({path, "", "set"}), row.matches)
            << row.pattern.c_str();
    }
    // A sign of comments keeps a pattern from machine code: the stack of the thread decides, or the limit.
    for (const int depth : {3, 100, 200}) {
        const Str pattern = Str::concat(nested("a|b", depth), "#?");
        const Str path(kLongest, 'a');
        RegMonEventFilter("f", pattern, pattern, ".*").matches({path, path, "set"});
    }
}

} // namespace
} // namespace velmox
