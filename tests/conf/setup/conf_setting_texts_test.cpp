#include "conf/setup/blacklist_pattern.h"
#include "conf/setup/time_with_unit.h"
#include "util/regex.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(ConfSettingTexts, ReadsTimes)
{
    const struct
    {
        const char *text;
        std::optional<std::uint64_t> milliseconds;
    } cases[] = {
        {"10", 10'000},
        {"0", 0},
        {"1500us", 1},
        {"250ms", 250},
        {"3cs", 30},
        {"3ds", 300},
        {"2s", 2000},
        {"2 Secs", 2000},
        {"SECOND", 1000},
        {"m", 60'000},
        {"2minutes", 120'000},
        {"1h", 3'600'000},
        {"2days", 172'800'000},
        {"1week", 604'800'000},
        {"1mon", 2'592'000'000},
        {"1quarter", 7'776'000'000},
        {"1y", 31'536'000'000},
        {"18446744073709551615ms", 18'446'744'073'709'551'615u},
        {"18446744073709551616ms", std::nullopt},
        {"18446744073709551s", 18'446'744'073'709'551'000u},
        {"18446744073709552s", std::nullopt},
        {"", std::nullopt},
        {"  ", std::nullopt},
        {"-1", std::nullopt},
        {"+1", std::nullopt},
        {"1.5s", std::nullopt},
        {"10 parsecs", std::nullopt},
        {"10s 5", std::nullopt},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(millisecondsOfTime(each.text), each.milliseconds) << each.text;
    }
}

TEST(ConfSettingTexts, TurnsBlacklistWildcardsIntoExpressions)
{
    EXPECT_EQ(blacklistPattern(R"(C:\etc\*.conf)"), R"(C:\\etc\\[^\\]*\.conf)");
    EXPECT_EQ(blacklistPattern("...x"), ".*x");
    EXPECT_EQ(blacklistPattern("...."), R"(.*\.)");
    EXPECT_EQ(blacklistPattern("plain"), "plain");

    const Regex regex(blacklistPattern(R"(...\apps\*\local\a.conf)"), false, 0);
    const auto matches = [&regex](const char *path) { return regex.match(Str(path), nullptr, false, true); };
    EXPECT_TRUE(matches(R"(C:\x\apps\search\local\a.conf)"));
    EXPECT_FALSE(matches(R"(C:\x\apps\search\deep\local\a.conf)"));
    EXPECT_FALSE(matches(R"(C:\x\apps\search\local\abconf)"));
}

} // namespace
} // namespace velmox
