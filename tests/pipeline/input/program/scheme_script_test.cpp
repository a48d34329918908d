#include "pipeline/input/program/scheme_script.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(SchemeScript, FindsTheFirstFault)
{
    const struct
    {
        const char *stanza, *key, *value, *fault;
    } rows[] = {
        {"WinRegMon://x", "hive", "HKLM\\\\Software\\\\.*", ""},
        {"winregmon:x", "unknown", "(", ""},
        {"WinRegMon://x", "proc", "", ""},
        {"WinRegMon://x", "proc", "(", " is no regular expression: "},
        {"WinRegMon://x", "hive", "(", " is no regular expression: "},
        {"WinRegMon://x", "type", "(", " is no regular expression: "},
        {"WinRegMon://x", "type", "(a|b)", " is no regular expression: "}, // its pieces are none
        {"WinRegMon://x", "baseline", "often", " is neither true nor false."},
        {"WinRegMon://x", "disabled", "often", " is neither true nor false."},
        {"WinRegMon://x", "baseline_interval", "-1", " is no number of seconds."},
    };
    for (const auto &row : rows) {
        std::map<Str, PropertiesMap> stanzas;
        stanzas["WinRegMon://a"].set("type", "set|create");
        stanzas[row.stanza].set(row.key, row.value);
        const Str text = Str::fromFormat("The value \"%s\" of %s in the stanza \"%s\"%s", row.value, row.key,
                                         row.stanza, row.fault);
        const Str fault = findFault(stanzas);
        EXPECT_EQ(fault.empty(), *row.fault == '\0') << fault.c_str();
        EXPECT_TRUE(fault.empty() || fault.startsWith(text)) << fault.c_str();
    }
    EXPECT_EQ(findFault({{"RegMon://x", {}}}), "The stanza \"RegMon://x\" does not begin with WinRegMon://.");
}

} // namespace
} // namespace velmox
