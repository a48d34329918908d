#include "pipeline/input/check/pattern_samples.h"
#include "pipeline/input/check/raw_escapes.h"
#include "util/match/regex.h"

namespace velmox {
namespace {

TEST(PatternSamples, MatchWhatTheyAreMadeFrom)
{
    for (const char *text :
         {R"(a\\b\.c)", "a|b(c|d)?e", "(?:ab){2,3}?x*+", R"([^\\]+\\[\]x-z]\d\s\w\h)", "(?i:a)(?s:.)(?s).",
          R"((?=ab)a(?!c)b\bx?)", R"(\x61\x{62}\t\n)", "^[[:alpha:]]$", "a{,2}b{x}c{3}", "(?<n>a)(?'m'b)",
          "(?#note)a", "\xC3\xA4[\xC3\xA4-\xC3\xB6]?", "((a|b){2}c?)+"}) {
        const std::optional<PatternPart> parts = parsePattern(text);
        ASSERT_TRUE(parts) << text;
        const StrVector samples = sampleTexts(*parts);
        EXPECT_FALSE(samples.empty()) << text;
        Regex regex;
        regex.compile(text, false, 0);
        for (const Str &sample : samples) {
            // An assertion in the middle may refuse some, which is why they are tried; never the first here.
            EXPECT_TRUE(regex.matchesAll(sample) || &sample != &samples.front())
                << text << ": " << sample.c_str();
        }
    }
}

TEST(PatternSamples, DrawNothingFromWhatIsNotKnown)
{
    for (const char *text :
         {R"((a)\1)", "(?x)a b", "(?r)", "(*utf8)a", R"(\k<n>)", "a(", "a)", "[a", "*", "\\"}) {
        EXPECT_FALSE(parsePattern(text)) << text;
    }
    EXPECT_FALSE(parsePattern(Str(1000, '(')));
    EXPECT_THAT(sampleTexts(*parsePattern("a{1000000}")), ::testing::IsEmpty());
}

TEST(PatternSamples, TellHowMatchesBegin)
{
    const auto of = [](const char *text) { return beginnings(*parsePattern(text)); };
    EXPECT_THAT(of(R"((hklm|hku)\\.*)"), ::testing::ElementsAre("hklm\\", "hku\\"));
    EXPECT_THAT(of("^a?b+c"), ::testing::ElementsAre("ab", "b"));
    EXPECT_THAT(of(".*a"), ::testing::ElementsAre(""));
    EXPECT_THAT(of("(a|[xy])z"), ::testing::ElementsAre("a", ""));
}

// The trial ends, whatever the pattern, and tells patterns that explode from those that only look so.
TEST(PatternTrial, TakesTheMeasureOfNestedRepeats)
{
    const auto trialOf = [](const char *text) {
        const PatternPart parts = *parsePattern(text);
        EXPECT_TRUE(hasNestedRepeats(parts)) << text;
        return worstTrial(text, TrialMode::Whole, worstTexts(parts, 250));
    };
    for (const char *text : {"(a+)+b", R"(x\\(\w+\s?)*$)", "((a*)*c)*d", R"(([^\\]*\\?)+z)", "(.*a){12}",
                             "(a+){20}b", R"(([a-z]+\\?){1,30}b)", "(.*x){9}b", "(a|a)*b", "(a|aa)+b"}) {
        EXPECT_TRUE(trialOf(text).gaveUp) << text;
    }
    for (const char *text : {R"(x\\([^\\]+\\)*y)", R"((a+b)+)", "(ab|ac)*d"}) {
        EXPECT_FALSE(trialOf(text).gaveUp) << text;
    }
    EXPECT_FALSE(hasNestedRepeats(*parsePattern(R"((\\.*)?(a|b){3}(a|b)*(a+){2}.*)")));
}

// What the check takes for a slip, and what for intent.
TEST(RawEscapes, GuessWhatABackslashWasMeantFor)
{
    HiveNames names;
    names.fill(u"\\REGISTRY\\USER\\S-1-5-21-1");
    const auto isSlip = [&](const Str &pattern) {
        const std::vector<LetterEscape> escapes = letterEscapes(pattern);
        return std::ranges::any_of(
            escapes, [&](const LetterEscape &escape) { return isLikelySeparator(pattern, escape, names); });
    };
    for (const char *slip :
         {R"(HKLM\Run)", R"(hklm\d)", R"(c:\d)", R"(HKLM\\A\Vendor)", R"(A\\b\7zip)", R"(A\services)",
          R"(\cmd\.exe)", R"(A\\b\program)", R"(A\\b\microsoft)", R"(A\\Vendor\sub\\.*)", R"(A\\b\7-Zip)",
          R"(.*\regedit\.exe)", R"(A\\.*\services)", R"(\system32\\.*)", R"(A (x86)\7-Zip)"}) {
        EXPECT_TRUE(isSlip(slip)) << slip;
    }
    for (const char *slip :
         {R"(.*\bash.exe)", R"(.*\bash\.exe$)", R"(.*\bcdedit.exe)", R"(A\\.*\bin\\.*)", R"((A|B)\boot\\.*)",
          R"([^\\]+\browser_agent\.exe)", R"(.*\sc\.exe)", R"(.*\x64\\.*)"}) {
        EXPECT_TRUE(isSlip(slip)) << slip;
    }
    for (const char *meant :
         {R"(A\\ControlSet\d+)", R"(\bcmd\b)", R"(Internet\sExplorer\\.*)", R"(A\\\x41b)", R"((a)\1)",
          R"((a)b\1)", R"(A\\\p{L}+)", R"(A\\\QX.Y\E)", R"(A\\\S+)", R"(cmd\.exe$)", R"(.*\d{4}\.exe)",
          R"(A\\.*\bfoo)", R"(A\\.*\sFiles)", R"(\QC:\Windows\E)"}) {
        EXPECT_FALSE(isSlip(meant)) << meant;
    }
    for (const char *meant :
         {R"(.*\bcmd\.exe)", R"(.*\bedge\b\.exe)", R"(.*\b(explorer)\.exe)", R"(\bexplorer\.exe)",
          R"(A\\.*\bRun\\.*)", R"(.*\bin.*)", R"([\s\S]*)", R"(.*\d.exe)", R"(.*\d1\.exe)", R"(\d\dab\.exe)",
          R"([]a\dbc]+)", R"(Internet\sExplorer)"}) {
        EXPECT_FALSE(isSlip(meant)) << meant;
    }
}

} // namespace
} // namespace velmox
