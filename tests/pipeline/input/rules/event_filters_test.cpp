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
        // A path that is the pattern itself.
        {".*", R"(\\Registry\\x+)", ".*", "", R"(\\registry\\x+)", "set", true},
        {".*", R"(\\Registry\\x+)", ".*", "", R"(\registry\x+)", "set", false},
    };
    for (const auto &row : rows) {
        RegMonEventFilter filter("f", row.proc, row.hive, row.type);
        EXPECT_EQ(filter.matches({row.process, row.keyPath, row.word}), row.matches) << &row - rows;
    }
    EXPECT_THROW(RegMonEventFilter("f", ".*", "[x", ".*"), RegexException);
}

} // namespace
} // namespace velmox
