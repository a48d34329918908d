#include "pipeline/input/program/command_line.h"

namespace velmox {
namespace {

/// What a command line comes to, in words for what differs from the defaults.
std::string scanned(std::vector<const wchar_t *> arguments)
{
    arguments.insert(arguments.begin(), L"velmox-regmon.exe");
    arguments.push_back(nullptr);
    CommandLine options;
    if (!scanCommandLine(arguments.data(), options)) {
        return "usage";
    }
    const Str pid = Str::fromFormat("%u", static_cast<unsigned>(options.parentPid));
    std::string text(options.index.view());
    text += options.inclusive ? "" : " exclusive";
    text += options.migrateSysmon ? "" : " no-migration";
    text += options.migrateOnly ? " migration-only" : "";
    text += options.runUntilPidDies ? " until " + std::string(pid.view()) : "";
    return text + (options.dieWhenPidDies ? " with " + std::string(pid.view()) : "");
}

TEST(CommandLine, EveryTokenMeetsTheTestsInTheirOrder)
{
    const struct
    {
        std::vector<const wchar_t *> arguments;
        const char *options;
    } rows[] = {
        {{}, ""},
        {{L"--path-driver", L"C:\\x", L"-INDEX", L"y"}, ""},
        {{L"-run-until-pid-dies", L"abc"}, "usage"},
        {{L"-die-when-pid-dies", L""}, "usage"},
        {{L"-inclusive"}, "usage"},
        // The watch options exclude each other by order.
        {{L"-die-when-pid-dies", L"5", L"-run-until-pid-dies", L"6"}, " with 5"},
        {{L"-run-until-pid-dies", L"6", L"-die-when-pid-dies", L"5"}, " until 6"},
        {{L"-run-until-pid-dies", L"12ab", L"-run-until-pid-dies", L"7"}, " until 7"},
        {{L"-run-until-pid-dies", L"12ab"}, " until 12"},
        // A value stays the token for the tests behind its own, not for those before.
        {{L"-index", L"-migrateOnly"}, "-migrateOnly migration-only"},
        {{L"-index", L"-inclusive", L"0"}, "-inclusive exclusive"},
        {{L"-inclusive", L"-disableSysmonMigrate"}, " no-migration"},
        // One enclosing pair of quotes goes.
        {{L"-inclusive", L"\"0\"", L"-index", L"\"\"x"}, "\"\"x exclusive"},
        {{L"-inclusive", L"00", L"-index", L"\"main\""}, "main"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(scanned(row.arguments), row.options) << &row - rows;
    }
}

} // namespace
} // namespace velmox
