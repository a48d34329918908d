#include "pipeline/input/scheme_script.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(SchemeScript, FindsTheFirstFault)
{
    struct Row
    {
        const char *stanza;
        const char *key;
        const char *value;
        const char *fault;
    };
    const Row rows[] = {
        {"WinRegMon://x", "hive", "HKLM\\\\Software\\\\.*", ""},
        {"winregmon:x", "unknown", "(", ""},
        {"WinRegMon://x", "proc", "", ""},
        {"RegMon://x", "proc", "a", "The stanza \"RegMon://x\" does not begin with WinRegMon://."},
        {"WinRegMon://x", "baseline", "often",
         "The value \"often\" of baseline in the stanza \"WinRegMon://x\" is neither true nor false."},
        {"WinRegMon://x", "baseline_interval", "-1",
         "The value \"-1\" of baseline_interval in the stanza \"WinRegMon://x\" is no number of seconds."},
    };
    for (const Row &row : rows) {
        std::map<Str, PropertiesMap> stanzas;
        stanzas["WinRegMon://a"].set("type", "set|create");
        stanzas[row.stanza].set(row.key, row.value);
        EXPECT_EQ(findFault(stanzas), row.fault);
    }
    // The last is a pattern, but its pieces are none.
    for (const auto &[key, value] :
         {std::pair{"proc", "("}, {"hive", "("}, {"type", "("}, {"type", "(a|b)"}}) {
        std::map<Str, PropertiesMap> stanzas;
        stanzas["WinRegMon://x"].set(key, value);
        const Str start =
            Str::fromFormat("The value \"%s\" of %s in the stanza \"WinRegMon://x\" is no regular "
                            "expression: ",
                            value, key);
        EXPECT_TRUE(findFault(stanzas).startsWith(start.view())) << findFault(stanzas).c_str();
    }
}

} // namespace
} // namespace velmox
