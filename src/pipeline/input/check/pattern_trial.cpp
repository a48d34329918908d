#include "pipeline/input/check/pattern_trial.h"

#include "util/match/regex.h"
#include "util/match/regex_program.h"

#include <algorithm>
#include <chrono>

namespace velmox {

namespace {

/// As many steps as a text takes that is not worth a word are far below the first, and those that take
/// seconds far above the second. The latter counts for each place from which a search starts.
constexpr unsigned kQuickLimit = 20'000;
constexpr unsigned kSearchLimit = 1'000'000;

constexpr int kOffsets = 30;
constexpr int kRuns = 3;

/// The limit of zero is PCRE's own.
std::unique_ptr<RegexProgram> limitedProgram(const Str &pattern, TrialMode mode, unsigned limit)
{
    Str text = limit == 0 ? Str() : Str::fromFormat("(*LIMIT_MATCH=%u)", limit);
    const bool isWhole = mode == TrialMode::Whole;
    text << (isWhole ? "(?:" : "") << pattern << (isWhole ? ")\\z" : "");
    const char *error = nullptr;
    return RegexProgram::compile(text, true, isWhole ? PCRE_ANCHORED : 0, error);
}

PatternTrial runOnce(const RegexProgram &program, const Str &text)
{
    int offsets[kOffsets];
    const auto start = std::chrono::steady_clock::now();
    const int result = program.exec(text.data(), text.size(), PCRE_NO_UTF8_CHECK, offsets, kOffsets);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return {time.count(), result == PCRE_ERROR_MATCHLIMIT || result == PCRE_ERROR_RECURSIONLIMIT};
}

/// The best of some runs: others on the machine only ever add to the time.
PatternTrial run(const RegexProgram &program, const Str &text)
{
    PatternTrial best = runOnce(program, text);
    for (int more = 1; more < kRuns && !best.gaveUp; ++more) {
        best.milliseconds = std::min(best.milliseconds, runOnce(program, text).milliseconds);
    }
    return best;
}

} // namespace

Str patternFault(const Str &pattern)
{
    try {
        Regex().compile(pattern, false, 0);
        return {};
    } catch (const RegexException &exception) {
        // The exception does not tell where, so that PCRE is asked again.
        const char *error = nullptr;
        int offset = 0;
        pcre_free(pcre_compile(pattern.c_str(), PCRE_UTF8, &error, &offset, nullptr));
        const std::string_view before = pattern.view().substr(0, static_cast<std::size_t>(offset));
        const auto characters =
            std::ranges::count_if(before, [](char byte) { return (byte & 0xC0) != 0x80; });
        return Str::fromFormat("%s at character %d of \"%s\"",
                               error != nullptr ? error : exception.message().c_str(),
                               static_cast<int>(characters), pattern.c_str());
    }
}

PatternTrial worstTrial(const Str &pattern, TrialMode mode, const StrVector &texts)
{
    PatternTrial worst;
    const auto quick = limitedProgram(pattern, mode, kQuickLimit);
    const auto real = limitedProgram(pattern, mode, mode == TrialMode::Search ? kSearchLimit : 0);
    if (!quick || !real) {
        return worst;
    }
    for (const Str &text : texts) {
        const PatternTrial trial = run(*quick, text);
        if (trial.gaveUp) {
            return run(*real, text);
        }
        worst.milliseconds = std::max(worst.milliseconds, trial.milliseconds);
    }
    return worst;
}

} // namespace velmox
