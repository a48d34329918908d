#include "pipeline/input/baseline/baseline_start_points.h"
#include "pipeline/input/check/pattern_samples.h"
#include "pipeline/input/check/raw_escapes.h"
#include "pipeline/input/check/stanza_checks.h"
#include "pipeline/input/rules/registry_operations.h"
#include "util/match/required_literals.h"
#include "util/match/string_filters.h"
#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

// What the paths of all events begin with. Below `a` lie hives that programs load for themselves alone
// (Microsoft, RegLoadAppKey).
constexpr const char *kEventRoots[] = {"\\registry\\machine\\", "\\registry\\user\\", "\\registry\\a\\"};
constexpr std::string_view kControlSet = "\\registry\\machine\\system\\controlset";
constexpr std::string_view kCurrentControlSet = "\\registry\\machine\\system\\currentcontrolset";
constexpr std::string_view kSoftware = "\\registry\\machine\\software\\";
constexpr std::string_view kWow64 = "wow6432node";

/// Another stanza in force that names the current control set; null for none.
const CheckedStanza *namerOfControlSet(const StanzaAtHand &at)
{
    const auto names = [&](const CheckedStanza &other) {
        return other.stanza != &at.stanza() && other.isInForce() && other.rules->namesCurrentControlSet();
    };
    const auto found = std::ranges::find_if(at.all.stanzas, names);
    return found == at.all.stanzas.end() ? nullptr : &*found;
}

/// Where a name in a path ends that has begun before `from`.
std::size_t nameEnd(const Str &path, std::size_t from)
{
    return std::min(path.find('\\', from), path.size());
}

/// Whether a text that paths of matches begin with, up to where it is known, can begin the path of an event.
bool canBeginEvent(const Str &beginning)
{
    return std::ranges::any_of(kEventRoots, [&](const Str &root) {
        // The root key itself has no backslash behind it, and no name below it is empty.
        return root.startsWith(beginning.view()) ||
               (beginning.startsWith(root.view()) && !beginning.view().substr(root.size()).starts_with('\\'));
    });
}

/// Whether what PCRE makes of the beginnings of all events' paths leaves the pattern a chance.
bool canGoOnInEvents(const StanzaRules &rules)
{
    try {
        const Regex pattern(Str() << "\\A(?:" << rules.config().hive.pattern() << ')', false, 0);
        return std::ranges::any_of(kEventRoots, [&](const Str &root) {
            return pattern.partialMatch(root) || rules.filter().matchesKey(root.substr(0, root.size() - 1));
        });
    } catch (const RegexException &) {
        // There is what can only stand at the very front.
        return true;
    }
}

/// Whether the pattern can accept the path of any event. True where it can't be told: nothing is reported on
/// a guess.
bool canMatchEvents(const StanzaRules &rules)
{
    const StrVector begun = rules.hiveParts() ? beginnings(*rules.hiveParts()) : StrVector();
    return canGoOnInEvents(rules) && (begun.empty() || std::ranges::any_of(begun, canBeginEvent));
}

/// Whether an empty name stands between two separators of each path that is known to match.
bool needsEmptyName(const StanzaRules &rules)
{
    return !rules.samplePaths().empty() &&
           std::ranges::all_of(rules.samplePaths(), [](const Str &path) { return path.contains("\\\\"); });
}

/// Alternatives that no path begins like, in a hive of which another one can match. A root is replaced at the
/// very front alone, so `HKLM\\A|HKLM\\B` has a second half that matches nothing.
void checkAlternatives(const StanzaAtHand &at, Report &report)
{
    const std::optional<PatternPart> &parts = at.rules().hiveParts();
    const Str hive = at.value("hive");
    const std::vector<std::string_view> written = alternativesOf(hive.view());
    if (!parts || parts->kind != PatternPart::Kind::Choice || parts->parts.size() != written.size()) {
        return;
    }
    for (std::size_t i = 0; i < written.size(); ++i) {
        const StrVector begun = beginnings(parts->parts[i]);
        if (begun.empty() || std::ranges::any_of(begun, canBeginEvent)) {
            continue;
        }
        const Str united = unitedAlternatives(written);
        report.add("hive", Str() << '"' << shortened(Str(written[i]))
                                 << "\" matches nothing: a root is known at the very front alone; write "
                                 << (united.empty() ? "a stanza for each" : shortened(united)));
        return;
    }
}

/// Whether a path is \registry\user\SID\software\classes or below it: a link to \registry\user\SID_Classes,
/// and the kernel reports the latter. The first name is the empty one before the backslash.
bool isBelowUsersClasses(const Str &path)
{
    StrVector names;
    StrSegment(path).splitInto(names, "\\");
    return names.size() > 5 && names[1] == "registry" && names[2] == "user" && names[4] == "software" &&
           names[5] == "classes";
}

/// How the registry's root is to be written that a pattern seems to mean; where it seems to mean none, the
/// roots that there are. HKCR has no place of its own: it shows two others merged.
Str spellingOfRoot(const Str &hive, const HiveNames &hiveNames)
{
    const Str name = hive.trimmed(CharSet("^(?:\\"), true, false).uppered();
    if (name.startsWith("HKCR") || name.startsWith("HKEY_CLASSES_ROOT")) {
        return "HKLM\\\\SOFTWARE\\\\Classes\\\\ or HKU\\\\[^\\\\]+_Classes\\\\";
    }
    if (hive.trimmed(CharSet("^"), true, false).startsWith("(")) {
        return "\\\\REGISTRY\\\\(MACHINE|USER)\\\\, or a stanza for each root";
    }
    Str found;
    for (const auto &[root, info] : hiveNames.hiveKeyMap()) {
        const Str spelt = Str::fromUtf16(root);
        if (!spelt.startsWith("\\") && name.startsWith(spelt.view()) && spelt.size() > found.size()) {
            found = spelt;
        }
    }
    return found.empty() ? Str("HKLM\\\\, HKU\\\\, HKCU\\\\ or HKCC\\\\") : Str::concat(found, "\\\\");
}

/// A part of the registry that the driver reports or leaves out as a whole.
struct ReportedRoot
{
    const char *name;
    std::string_view path;
    std::uint32_t hives;
};

constexpr ReportedRoot kReportedRoots[] = {
    {"HKLM", "\\registry\\machine", kMachineHives},
    {"HKU", "\\registry\\user", kUserHives},
};

/// Whether the stanza is known to accept a path below the root: one of its samples, with the root in front or
/// in the place of another.
bool accepts(const StanzaRules &rules, const ReportedRoot &root)
{
    constexpr std::string_view kRegistry = "\\registry\\";
    return std::ranges::any_of(rules.samplePaths(), [&](const Str &path) {
        const Str below = path.startsWith(kRegistry) ? path.substr(nameEnd(path, kRegistry.size()))
                                                     : Str::concat(path.startsWith("\\") ? "" : "\\", path);
        // One that has a root behind something else, `.*\\registry\\machine\\.*`, is not about other roots.
        return !below.contains(Str(kRegistry)) && rules.filter().matchesKey(Str::concat(root.path, below));
    });
}

/// A root that is named anywhere in a hive, be it in the name of a key, is all that the driver is asked for.
void checkUnreportedRoots(const StanzaAtHand &at, Report &report)
{
    std::uint32_t hives = at.rules().filterBlock().hives;
    if (hives == 0) {
        return;
    }
    for (const CheckedStanza &other : at.all.stanzas) {
        hives |= other.isInForce() ? other.rules->filterBlock().hives : 0;
    }
    for (const ReportedRoot &root : kReportedRoots) {
        if ((hives & root.hives) == 0 && accepts(at.rules(), root)) {
            report.add("hive",
                       Str() << "matches nothing below " << root.name
                             << ": another root is named in it, so that the driver is asked for that alone; "
                                "write a stanza for each root, or HK[L]M where HKLM is part of a name");
        }
    }
}

/// The components of a pattern's literal beginning.
ResolvedStart startOf(const StanzaAtHand &at)
{
    return resolveRoot(literalComponents(at.rules().config().hive.pattern()), at.all.hiveNames);
}

void checkTypeWords(const StanzaAtHand &at, Report &report)
{
    StrVector words;
    for (const auto &[word, mask] : registryOperationMasks()) {
        words.push_back(word);
    }
    for (const Str &piece : at.rules().config().types) {
        if (!patternFault(piece.lowered()).empty()) {
            continue;
        }
        RegexFilterList pattern({piece.lowered()});
        const auto isFound = [&](const Str &word) { return pattern.matches(word); };
        if (!piece.empty() && std::ranges::none_of(words, isFound)) {
            report.add("type", Str() << "\"" << shortened(piece) << "\" is found in no operation; there are "
                                     << joined(words, ", "));
        }
    }
    if (std::ranges::all_of(at.rules().config().types, [](const Str &piece) { return piece.empty(); })) {
        report.add("type",
                   Str() << "the driver is asked for no operation; there are " << joined(words, ", "));
    }
}

/// Whether a stanza lets something through that another one would not, were the key one for both.
bool acceptsBeyond(const StanzaRules &rules, const StanzaRules &other)
{
    const auto isBeyond = [&](const auto &operation) {
        return rules.filter().matchesType(operation.first) && !other.filter().matchesType(operation.first);
    };
    // What finds this, finds any process.
    const bool takesAnyProcess = other.filter().matchesProcess("!");
    return std::ranges::any_of(registryOperationMasks(), isBeyond) ||
           (!takesAnyProcess && other.config().proc.pattern() != rules.config().proc.pattern());
}

/// What a stanza accepts below keys of another one, which takes no such operation or process, carries the
/// name of that one all the same.
void checkPartlyTakenName(const StanzaAtHand &at, Report &report)
{
    for (const CheckedStanza &other : at.all.stanzas) {
        if (&other == &at.checked || !other.isInForce() || !acceptsBeyond(at.rules(), *other.rules)) {
            continue;
        }
        const Str &name = other.rules->config().name;
        const auto isTaken = [&](const Str &path) {
            // Asked first, as this alone is cheap.
            if (!at.rules().filter().matchesKey(path)) {
                return false;
            }
            const SystemMonitoringConfig *const taker = at.all.inForce->stanzaOf(path);
            return taker != nullptr && taker->name == name;
        };
        const StrVector &paths = other.rules->samplePaths();
        const auto taken = std::ranges::find_if(paths, isTaken);
        if (taken != paths.end()) {
            report.add(
                "hive",
                Str()
                    << "some of what it accepts goes out as [" << other.stanza->name
                    << "], which need not accept it: its hive is the longest that is found there, such as in "
                    << shortened(*taken));
            return;
        }
    }
}

void checkPaths(const StanzaAtHand &at, Report &report)
{
    const Str hive = at.value("hive");
    const Str &pattern = at.rules().config().hive.pattern();
    const bool hasFour = hive.contains("\\\\\\\\");
    if (canMatchEvents(at.rules()) && !(hasFour && needsEmptyName(at.rules()))) {
        checkAlternatives(at, report);
    } else if (hasFour) {
        report.add("hive",
                   "matches nothing: four backslashes stand for two, with an empty name between them; "
                   "write two");
    } else if (!pattern.startsWith("\\\\registry\\\\machine") &&
               !pattern.startsWith("\\\\registry\\\\user")) {
        report.add("hive", Str() << "matches nothing: no path begins so; write "
                                 << spellingOfRoot(hive, at.all.hiveNames)
                                 << ", in capitals, at the very front");
    } else if (!hasLikelySeparator(hive, at.all.hiveNames)) {
        report.add("hive", "matches nothing: no path goes on so behind the root");
    }
}

} // namespace

void checkHiddenControlSet(const StanzaAtHand &at, Report &report)
{
    const CheckedStanza *const namer = namerOfControlSet(at);
    if (namer == nullptr) {
        return;
    }
    const RegMonEventFilter &filter = at.rules().filter();
    for (const Str &path : at.rules().samplePaths()) {
        if (!path.startsWith(kControlSet)) {
            continue;
        }
        const Str rest = path.substr(nameEnd(path, kControlSet.size()));
        // A pattern may have any number in it, or a class. What counts is the control set that gets renamed.
        const Str numbered = Str::concat(namer->rules->currentControlSetPath(), rest);
        // As the filters get to see it.
        const Str renamed = Str::concat(kCurrentControlSet, rest);
        if (filter.matchesKey(numbered) && !filter.matchesKey(renamed)) {
            report.add("hive", Str() << "matches nothing in the current control set, as ["
                                     << namer->stanza->name
                                     << "] names that: all stanzas then see CurrentControlSet there; write "
                                        "HKLM\\\\SYSTEM\\\\[^\\\\]+\\\\ in both");
            return;
        }
    }
}

void checkUnnamedControlSet(const StanzaAtHand &at, Report &report)
{
    if (at.rules().namesCurrentControlSet()) {
        // The monitor looks for the text alone, and takes `CurrentControlSetX` for the current control set
        // too.
        const auto isBelowCurrent = [](const Str &path) {
            return path.startsWith(kCurrentControlSet) &&
                   nameEnd(path, kCurrentControlSet.size()) == kCurrentControlSet.size();
        };
        const StrVector &paths = at.rules().samplePaths();
        if (paths.empty() || std::ranges::any_of(paths, isBelowCurrent)) {
            report.add("hive",
                       "names the current control set: live events carry neither the stanza nor its index; "
                       "write HKLM\\\\SYSTEM\\\\[^\\\\]+\\\\");
            return;
        }
        report.add("hive",
                   "counts as one that names the current control set, as the name begins so: all stanzas "
                   "then see CurrentControlSet in the place of the numbered one; put the name in "
                   "parentheses");
    }
}

void checkCurrentConfig(const StanzaAtHand &at, Report &report)
{
    const auto root = at.all.hiveNames.hiveKeyMap().find(u"HKCC");
    if (root != at.all.hiveNames.hiveKeyMap().end() &&
        at.rules().config().hive.pattern().startsWith(
            Str::fromUtf16(root->second.regexPath).lowered().view())) {
        report.add("hive",
                   "HKCC gives a baseline and no live event, as the kernel reports what lies behind that "
                   "name; write HKLM\\\\SYSTEM\\\\[^\\\\]+\\\\Hardware Profiles\\\\.*");
    }
}

void checkTypeCase(const StanzaAtHand &at, Report &report)
{
    StrVector lost;
    for (const auto &[word, mask] : registryOperationMasks()) {
        if (at.rules().filter().matchesType(word) && (at.rules().filterBlock().ops & mask) == 0) {
            lost.push_back(word);
        }
    }
    const Str type = at.value("type");
    if (!lost.empty() && type != type.lowered()) {
        report.add("type", Str() << "in capitals: the driver is not asked for " << joined(lost, ", ")
                                 << "; write it in lower case");
    }
}

void checkBaselineStart(const StanzaAtHand &at, Report &report)
{
    if (at.rules().config().baseline && startOf(at).hive == nullptr) {
        report.add("baseline",
                   "hive begins in no literal text below a root, so that there is nowhere to walk "
                   "from: no baseline");
    }
}

void checkBaselineRoot(const StanzaAtHand &at, Report &report)
{
    const ResolvedStart start = startOf(at);
    if (!at.rules().config().baseline || start.hive == nullptr) {
        return;
    }
    const Str path = Str::concat(start.root, start.rest);
    for (const auto &[name, root] : at.all.hiveNames.hiveKeyMap()) {
        // The system need not spell the current user's root in capitals.
        if (Str::fromUtf16(name).compareCaseless(path) == 0) {
            report.add("baseline", Str() << "walks all of " << Str::fromUtf16(root.shortName)
                                         << ": there is no more literal text at the beginning of hive");
            return;
        }
    }
}

void checkTakenName(const StanzaAtHand &at, Report &report)
{
    // What names the current control set is not found in any path, whosever it is.
    if (!at.checked.isInForce() || at.rules().namesCurrentControlSet() || !canMatchEvents(at.rules())) {
        return;
    }
    for (const Str &path : at.rules().samplePaths()) {
        const SystemMonitoringConfig *const taker = at.all.inForce->stanzaOf(path);
        // What the monitor would write is asked of its own group, on paths that this stanza accepts.
        if (taker != nullptr && taker->name != at.rules().config().name) {
            report.add("hive",
                       Str() << "what it accepts goes out as [" << at.request.scheme << "://" << taker->name
                             << "], whose hive is found in it and "
                             << (taker->hive.pattern().size() > at.rules().config().hive.pattern().size()
                                     ? "is longer"
                                     : "comes first of two that are as long")
                             << ", such as " << (path.empty() ? Str("any path") : shortened(path)));
            return;
        }
    }
    checkPartlyTakenName(at, report);
}

void checkMatchesNothing(const StanzaAtHand &at, Report &report)
{
    checkTypeWords(at, report);
    checkPaths(at, report);
    checkUnreportedRoots(at, report);
    if (std::ranges::any_of(at.rules().samplePaths(), isBelowUsersClasses)) {
        report.add("hive", "matches no live event: the kernel reports a user's classes elsewhere; write "
                           "HKU\\\\[^\\\\]+_Classes\\\\.*");
    }
}

void checkWow64(const StanzaAtHand &at, Report &report)
{
    for (const Str &path : at.rules().samplePaths()) {
        if (!path.startsWith(kSoftware) || path.size() == kSoftware.size() ||
            path.view().substr(kSoftware.size()).starts_with(kWow64)) {
            continue;
        }
        Str twin(kSoftware);
        twin << kWow64 << "\\" << path.view().substr(kSoftware.size());
        // One that is about all keys is there for something else.
        const auto covers = [&](const CheckedStanza &other) {
            return other.isInForce() && other.rules->config().hive.pattern().contains(Str(kWow64)) &&
                   other.rules->filter().matchesKey(twin);
        };
        if (!at.rules().filter().matchesKey(twin) && std::ranges::none_of(at.all.stanzas, covers)) {
            report.add("hive",
                       "what 32-bit programs write lies below HKLM\\\\SOFTWARE\\\\WOW6432Node, which is "
                       "not covered; HKLM\\\\SOFTWARE\\\\(WOW6432Node\\\\)? takes in both");
        }
        return;
    }
}

} // namespace velmox
