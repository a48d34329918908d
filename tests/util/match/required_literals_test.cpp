#include "util/match/literal_index.h"
#include "util/match/regex.h"

namespace velmox {
namespace {

using Sets = std::vector<LiteralSet>;

TEST(RequiredLiterals, AreWhatEveryMatchHolds)
{
    const std::pair<const char *, Sets> cases[] = {
        {R"(\\registry\\machine\\.*)", {{R"(\registry\machine\)"}}},
        {R"(\\registry\\machine\\.*\\run17\\.*)", {{R"(\registry\machine\)"}, {R"(\run17\)"}}},
        {R"(.*\\(run|runonce)\\[^\\]+)", {{R"(\run\)", R"(\runonce\)"}}},
        {R"(\\soft\\?([^\\]+){0,1})", {{R"(\soft)"}}},
        {R"(a\.b\dx)", {{"a.b"}, {"x"}}},
        {"ab*c+d{2}{3}e{f", {{"a"}, {"c"}, {"d"}, {"e{f"}}},
        {"a(bc)?(d|e)", {{"a"}, {"d", "e"}}},
        {"(?:ab|c.)d|x", {{"ab", "c", "x"}}},
        {"a\xC3\xA9?\xC3\xA9", {{"a"}, {"\xC3\xA9"}}},
        {"[]a]b[^]]c", {{"b"}, {"c"}}},
        {"plain|other", {{"plain", "other"}}},
        {"plain|", {}},
        {"^a$", {{"a"}}},
        {"a(?#c)", {}},
        {"(?i)a", {}},
        {"(a)\\1", {}},
        {"[[:alpha:]]a", {}},
        {R"(\Qa\E)", {}},
        {"a{0}", {}},
        {".*", {}},
        {"", {}},
    };
    for (const auto &[pattern, sets] : cases) {
        EXPECT_EQ(requiredLiterals(pattern), sets) << pattern;
    }
}

// What a random pattern matches, the index finds by what the pattern requires.
TEST(RequiredLiterals, StandInEveryMatch)
{
    static constexpr const char *kPieces[] = {"a",    "b",     "abc",      R"(\\)",  R"(\.)", "?",    "*",
                                              "+",    "{0,1}", "{2}",      "(",      ")",     "[ab]", "[^]a]",
                                              ".",    R"(\w)", R"(\E)",    R"(\Qa)", "(?#c)", "#",    "(?x)",
                                              "(?i)", "(?:",   "\xC3\xA9", "^",      "$",     "|"};
    static constexpr const char *kSubjectPieces[] = {"a", "b", "\\", ".", "A", "\xC3\xA9", "abc"};
    std::mt19937 dice(20);
    const auto textOf = [&dice](const auto &pieces, unsigned most) {
        Str text;
        for (auto left = dice() % most; left > 0; --left) {
            text.append(pieces[dice() % std::size(pieces)]);
        }
        return text;
    };
    int matches = 0;
    for (int round = 0; round < 20000; ++round) {
        const Str pattern = textOf(kPieces, 8);
        Regex regex;
        if (raisedBy<RegexException>([&] { regex.compile(pattern, false, 0); }) != "nothing") {
            continue;
        }
        LiteralIndex index;
        index.add(requiredLiterals(pattern));
        index.build();
        for (int i = 0; i < 20; ++i) {
            const Str subject = textOf(kSubjectPieces, 7);
            const bool matched = regex.finds(subject);
            BitSet found;
            index.find(subject, found);
            ASSERT_TRUE(found.contains(0) || !matched) << pattern.c_str() << " on " << subject.c_str();
            matches += matched;
        }
    }
    EXPECT_GT(matches, 1000);
}

// Literals of all lengths, among them such as begin and end alike, at every place of a text.
TEST(LiteralIndex, FindsLiteralsWhereverTheyStand)
{
    const StrVector literals = {"abc", "bcd", "abcd", "abcde", "cdefgh", "aaaaaaaa", "xyz0123456789"};
    for (std::size_t shortest = 0; shortest < literals.size(); ++shortest) {
        LiteralIndex index;
        for (std::size_t i = shortest; i < literals.size(); ++i) {
            index.add({{literals[i]}});
        }
        index.add({{"ab"}});
        index.add({}, "never");
        index.build();
        for (std::size_t length = 0; length < 24; ++length) {
            for (const Str &literal : literals) {
                const Str text = Str::concat(Str(length, '-'), Str::concat(literal, Str(length % 3, '-')));
                BitSet found;
                index.find(text, found);
                for (std::size_t i = shortest; i < literals.size(); ++i) {
                    EXPECT_EQ(found.contains(i - shortest), text.contains(literals[i]))
                        << literals[i].c_str() << " in " << text.c_str();
                }
                EXPECT_TRUE(found.contains(literals.size() - shortest)) << "too short to be looked for";
                EXPECT_TRUE(found.contains(literals.size() - shortest + 1)) << "nothing to be looked for";
            }
        }
    }
}

} // namespace
} // namespace velmox
