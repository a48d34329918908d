#include "util/match/literal_prefix.h"
#include "util/match/regex.h"

#include <gtest/gtest.h>
#include <random>

using namespace velmox;

namespace {

TEST(LiteralPrefix, EndsAtTheFirstSpecialCharacter)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"(\\registry\\machine\\.*)", R"(\registry\machine\)"},
        {R"(\\soft\\?([^\\]+){0,1})", R"(\soft)"},
        {R"(a\.b\dx)", "a."},
        {"ab*", "a"},
        {"ab{2}", "a"},
        {"ab(?#c)*", "a"},
        {"ab$", "a"},
        {"a\xC3\xA9?", "a"},
        {"a\xC3\xA9.", "a\xC3\xA9"},
        {"plain path", "plain path"},
        {"plain|other", ""},
        {"^a", ""},
        {".*", ""},
        {"", ""},
    };
    for (const auto &[pattern, prefix] : cases) {
        EXPECT_EQ(literalPrefix(pattern), prefix) << pattern;
    }
}

// Whatever matches a random pattern begins with the pattern's prefix.
TEST(LiteralPrefix, StandsBeforeEveryMatch)
{
    static constexpr const char *kPieces[] = {
        "a",     "b",     R"(\\)",  R"(\.)", "?", "*",    "+",    "{0,1}",    "(", ")", "[ab]", ".",
        R"(\w)", R"(\E)", R"(\Qa)", "(?#c)", "#", "(?x)", "(?i)", "\xC3\xA9", "^", "$", "|"};
    static constexpr const char *kSubjectPieces[] = {"a", "b", "\\", ".", "A", "\xC3\xA9"};
    std::mt19937 dice(20);
    int matches = 0;
    int prefixed = 0;
    for (int round = 0; round < 20000; ++round) {
        Str pattern;
        for (auto left = 1 + dice() % 7; left > 0; --left) {
            pattern.append(kPieces[dice() % std::size(kPieces)]);
        }
        Regex regex;
        try {
            regex.compile(pattern, false, 0);
        } catch (const RegexException &) {
            continue;
        }
        const Str prefix = literalPrefix(pattern);
        for (int i = 0; i < 20; ++i) {
            Str subject = i % 2 == 0 ? prefix : Str();
            for (auto left = dice() % 5; left > 0; --left) {
                subject.append(kSubjectPieces[dice() % std::size(kSubjectPieces)]);
            }
            if (regex.match(subject, nullptr, false, true)) {
                ++matches;
                prefixed += !prefix.empty();
                ASSERT_TRUE(subject.startsWith(prefix)) << pattern.c_str() << " on " << subject.c_str();
            }
        }
    }
    EXPECT_GT(matches, 1000);
    EXPECT_GT(prefixed, 1000);
}

} // namespace
