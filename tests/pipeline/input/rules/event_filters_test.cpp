#include "pipeline/input/rules/event_filters.h"

#include <gtest/gtest.h>

using namespace velmox;

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
        {".*", R"(\\registry)", "set", "p", R"(\registry\user)", "set", false},
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
        {"", ".*", "", "p", "x", "set", true},
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

std::vector<SysMonFilterableEvent> manyEvents()
{
    std::vector<SysMonFilterableEvent> events;
    for (const char *image : {"", R"(\device\hd1\windows\explorer.exe)", R"(\device\hd1\svchost.exe)", "b"}) {
        for (const char *root : {R"(\registry\machine\)", R"(\registry\user\s-1-5-18\)", "", "x\\",
                                 R"(\\registry\\machine\\)", R"(\registry)"}) {
            for (const char *rest : {"software\\run", "software", "exact", ".*", " x", "soft\\a\\b", ""}) {
                events.push_back({image, Str::concat(root, rest), *rest == 's' ? "set" : "create"});
            }
        }
    }
    return events;
}

// However a filter comes to its verdict, it is that of the three patterns tried in full.
TEST(RegMonEventFilter, TakesNoShortCutThatChangesTheVerdict)
{
    const auto compiled = [](const char *pattern) { return Regex(Str(pattern).lowered(), false, 0); };
    const Regex type = compiled("set|e$");
    for (const char *hive : {".*", R"(\\REGISTRY\\MACHINE\\.*)", R"(\\registry\\user\\[^\\]+\\software.*)",
                             R"(\\registry\\machine\\soft\\?([^\\]+){0,1})", R"(\registry\machine\exact)",
                             ".*run(once)?", "\\S+x", "(\\\\registry)?\\\\machine\\\\.*"}) {
        for (const char *proc : {".*", "explorer", R"(\\device\\.*\\SVC.*\.exe$)", "^$", "a|b"}) {
            const Regex key = compiled(hive);
            const Regex process = compiled(proc);
            RegMonEventFilter filter("f", proc, hive, "set|e$");
            for (const SysMonFilterableEvent &event : manyEvents()) {
                const bool isPattern = event.keyPath == Str(hive).lowered();
                EXPECT_EQ(filter.matches(event),
                          type.match(event.type) && process.match(event.process) &&
                              (isPattern || key.match(event.keyPath, nullptr, false, true)))
                    << hive << " " << proc << " on " << event.keyPath.c_str() << " by "
                    << event.process.c_str();
            }
        }
    }
}

} // namespace
