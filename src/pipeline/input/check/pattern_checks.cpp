#include "pipeline/input/check/pattern_samples.h"
#include "pipeline/input/check/raw_escapes.h"
#include "pipeline/input/check/stanza_checks.h"
#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr const char *kPatternKeys[] = {"hive", "proc"};

/// From here on a trial is worth a word: a usual pattern takes a hundredth of that. A monitor that sees ten
/// thousand records a second would do nothing else.
constexpr double kSlowMilliseconds = 0.1;
/// Of a path that a registry may well have: a key's name alone can take 255 characters.
constexpr std::size_t kWorstLength = 250;

/// What comes of a pattern that does not compile: nothing while no stanza that has it is enabled. Those that
/// inherit the setting from the same section have it as well.
Str consequence(const StanzaAtHand &at, const Str &key, const char *what)
{
    const auto &own = at.stanza().properties.properties;
    const auto setting = own.find(key);
    const Str section = setting == own.end() ? at.stanza().name : setting->second.originStanza;
    const bool isInForce = std::ranges::any_of(at.all.stanzas, [&](const CheckedStanza &other) {
        const auto &properties = other.stanza->properties.properties;
        const auto found = properties.find(key);
        return other.stanza->isEnabled() && found != properties.end() &&
               found->second.originStanza == section;
    });
    return Str() << "; with it the monitor " << what << (isInForce ? "" : " once the stanza is enabled");
}

constexpr char kNoStart[] = "does not start";

Str slownessOf(const PatternTrial &trial)
{
    Str text;
    text.appendFormat("a path of %d characters takes %.1f ms", static_cast<int>(trial.length),
                      trial.milliseconds);
    if (trial.gaveUp) {
        text << ", and then counts as not matching";
    }
    return text;
}

void checkSlowness(const char *key, const Str &pattern, TrialMode mode, Report &report)
{
    const std::optional<PatternPart> parts = parsePattern(pattern);
    if (!parts || !hasNestedRepeats(*parts)) {
        return;
    }
    const PatternTrial trial = worstTrial(pattern, mode, worstTexts(*parts, kWorstLength));
    if (trial.gaveUp || trial.milliseconds >= kSlowMilliseconds) {
        report.add(key, Str() << "repeats what repeats, or alternatives that begin alike: "
                              << slownessOf(trial) << "; repeat one thing alone");
    }
}

/// Whether the author says that the pattern is to end here.
bool hasDeliberateEnd(const Str &hive)
{
    const auto isEscaped = [](std::string_view before) {
        return (before.size() - (before.find_last_not_of('\\') + 1)) % 2 == 1;
    };
    const std::string_view text = hive.view();
    if (text.ends_with('$')) {
        return !isEscaped(text.substr(0, text.size() - 1));
    }
    return (text.ends_with('z') || text.ends_with('Z')) && isEscaped(text.substr(0, text.size() - 1));
}

/// The single part of a sequence of one, as groups and alternatives are.
const PatternPart &innermost(const PatternPart &part)
{
    const bool isWrapped =
        part.kind == PatternPart::Kind::Sequence && part.parts.size() == 1 && part.least <= 1;
    return isWrapped ? innermost(part.parts.front()) : part;
}

/// Whether the part goes on in anything, as `.*` and `(.|\n)*` do.
bool isAnything(const PatternPart &part)
{
    const auto isAny = [](const PatternPart &one) { return innermost(one).kind == PatternPart::Kind::Any; };
    return part.isRepeated() && (isAny(part) || (part.kind == PatternPart::Kind::Choice &&
                                                 std::ranges::any_of(part.parts, isAny)));
}

/// Whether the part ends in what goes on up to the next backslash, as `[^\\]+` does. Whoever writes that has
/// thought of where the pattern ends.
bool endsBeforeSeparator(const PatternPart &part)
{
    switch (part.kind) {
    case PatternPart::Kind::Class:
        return part.text.startsWith("[^") && part.text.contains("\\\\");
    case PatternPart::Kind::Sequence:
        return !part.parts.empty() && endsBeforeSeparator(part.parts.back());
    case PatternPart::Kind::Choice:
        return std::ranges::all_of(part.parts, endsBeforeSeparator);
    default:
        return false;
    }
}

} // namespace

void checkPatterns(const StanzaAtHand &at, Report &report)
{
    bool isFound = false;
    for (const char *key : kPatternKeys) {
        const Str fault = patternFault(at.value(key).lowered());
        if (!fault.empty()) {
            isFound = true;
            report.add(key, Str() << fault << consequence(at, key, kNoStart));
        }
    }
    // The monitor puts something behind a plain path. One that compiles by itself need not do so then: a
    // backslash at its end takes the first character of that into an escape.
    if (!isFound && at.checked.rules == nullptr && patternFault(at.value("type").lowered()).empty()) {
        report.add("hive", Str() << "no pattern once the monitor has completed it"
                                 << consequence(at, "hive", kNoStart));
    }
}

void checkTypes(const StanzaAtHand &at, Report &report)
{
    const Str type = at.value("type");
    // The filter takes the value as a whole and folded, the driver is asked for the pieces between bars as
    // they are. The first fault is enough; that of the whole comes first.
    StrVector patterns = {type.lowered()};
    StrSegment(type).splitInto(patterns, "|");
    for (const Str &pattern : patterns) {
        const Str fault = patternFault(pattern);
        if (fault.empty()) {
            continue;
        }
        Str message = fault;
        const bool isPiece = &pattern != &patterns.front();
        if (isPiece && type.contains("(")) {
            message << "; a bar between parentheses splits them, as each piece between bars is a pattern of "
                       "its own";
        }
        report.add("type", message << consequence(at, "type", isPiece ? "ends with -1" : kNoStart));
        return;
    }
}

void checkSingleBackslash(const StanzaAtHand &at, Report &report)
{
    for (const char *key : kPatternKeys) {
        const Str pattern = at.value(key);
        for (const LetterEscape &escape : letterEscapes(pattern)) {
            if (isLikelySeparator(pattern, escape, at.all.hiveNames)) {
                report.add(key, Str()
                                    << "\"" << shortened(escapedWord(pattern, escape))
                                    << "\" is no separator: one backslash gives the letter behind it "
                                       "another meaning; write two"
                                    << (escape.letter == 'b' ? ", or \\b(...) for the edge of a word" : ""));
                break;
            }
        }
    }
}

void checkFoldedEscape(const StanzaAtHand &at, Report &report)
{
    for (const char *key : {"hive", "proc", "type"}) {
        const Str pattern = at.value(key);
        for (const LetterEscape &escape : letterEscapes(pattern)) {
            const char *const instead = insteadOfFolded(escape);
            if (instead != nullptr && (!isLikelySeparator(pattern, escape, at.all.hiveNames) ||
                                       isPerhapsMeant(pattern, escape, at.all.hiveNames))) {
                Str message;
                message << '\\' << escape.letter << " is folded to \\" << Str(1, escape.letter).lowered()
                        << ", which means something else; write " << instead;
                report.add(key, message);
                break;
            }
        }
    }
}

void checkTail(const StanzaAtHand &at, Report &report)
{
    const Str hive = at.value("hive");
    // A value with a line end has taken in the next line, and is found as such.
    if (!hasPatternCharacters(hive) || hasDeliberateEnd(hive) || hive.contains("\n") ||
        (at.rules().hiveParts() && endsBeforeSeparator(*at.rules().hiveParts()))) {
        return;
    }
    const RegMonEventFilter &filter = at.rules().filter();
    const auto endsAtKey = [&](const Str &path) { return !filter.matchesKey(Str::concat(path, "\\x")); };
    const StrVector &paths = at.rules().samplePaths();
    const auto path = std::ranges::find_if(paths, endsAtKey);
    if (path != paths.end()) {
        report.add("hive",
                   Str() << "matches " << shortened(*path)
                         << " and nothing below it; for what lies below write (\\\\.*)? behind it, and "
                            "if it names a value, $");
    }
}

void checkPlainPath(const StanzaAtHand &at, Report &report)
{
    const Str hive = at.value("hive");
    if (hive.empty() || hasPatternCharacters(hive)) {
        return;
    }
    const Str message =
        "a plain path: keys beside it whose names begin alike are watched too, and what lies more "
        "than one level below is not";
    // What the monitor puts behind a plain path holds a line end, and a checkpoint file counts up to its
    // first line: the pattern never equals the one noted there, and the interval is of no use.
    const bool isBaseline = at.rules().config().baseline;
    report.add(isBaseline ? Severity::Warning : Severity::Note, "hive",
               Str() << message << (isBaseline ? "; with baseline it is walked at every start" : "")
                     << "; velmoxd pattern prints a pattern for the key with all below it");
}

void checkLineEnd(const StanzaAtHand &at, Report &report)
{
    // Also in `(.|\n)*`: a dot leaves out the seven line ends that Unicode knows, not the line feed alone.
    const auto meetsNoLineEnd = [](const PatternPart &part) {
        return part.kind == PatternPart::Kind::Any && !part.meetsLineEnds;
    };
    const std::optional<PatternPart> &parts = at.rules().hiveParts();
    if (!at.value("hive").empty() && parts && anyPart(*parts, meetsNoLineEnd)) {
        report.add("hive", "a dot meets no line end: a key or value whose name holds one passes unseen; "
                           "(?s:.*) sees it");
    }
}

void checkKeyItself(const StanzaAtHand &at, Report &report)
{
    const std::optional<PatternPart> &parts = at.rules().hiveParts();
    if (!parts) {
        return;
    }
    const PatternPart *const last = lastPart(*parts);
    // A separator and then anything: `X\\.*`.
    const PatternPart *const before = secondLastPart(*parts);
    if (last != nullptr && before != nullptr && isAnything(*last) &&
        before->kind == PatternPart::Kind::Text && before->text == "\\" && before->least > 0) {
        report.add("hive", "the key itself is left out: its creation, deletion and renaming pass unseen; "
                           "(\\\\.*)? at the end takes it in");
    }
}

void checkExplosive(const StanzaAtHand &at, Report &report)
{
    const SystemMonitoringConfig &config = at.rules().config();
    checkSlowness("hive", config.hive.pattern(), TrialMode::Whole, report);
    checkSlowness("proc", config.proc.pattern(), TrialMode::Search, report);
}

} // namespace velmox
