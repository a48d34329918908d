#include "pipeline/input/check/check.h"

#include "pipeline/input/check/stanza_checks.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace velmox {

namespace {

/// What a check can be asked about.
enum class Subject
{
    Stanza,  ///< of any scheme
    Monitor, ///< a stanza of the monitor, whether or not the monitor takes it
    Rules,   ///< a stanza that the monitor takes
    Foreign, ///< a stanza that is not of the scheme
};

/// A row of the table of checks. Several checks may give one code. The order of the rows shows in findings on
/// one line alone.
struct CodedCheck
{
    std::string_view code;
    Severity severity;
    Subject subject;
    void (*check)(const StanzaAtHand &at, Report &report);
};

constexpr CodedCheck kChecks[] = {
    {"scheme-spelling", Severity::Warning, Subject::Foreign, checkSchemeSpelling},
    {"scheme-spelling", Severity::Warning, Subject::Stanza, checkNameStart},
    {"unsafe-name", Severity::Warning, Subject::Monitor, checkName},
    {"hive-missing", Severity::Warning, Subject::Monitor, checkMissingHive},
    {"unknown-key", Severity::Warning, Subject::Stanza, checkUnknownKeys},
    {"header-swallowed", Severity::Warning, Subject::Stanza, checkSwallowedLines},
    {"header-swallowed", Severity::Warning, Subject::Foreign, checkSwallowedHeaders},
    {"quoted-value", Severity::Warning, Subject::Stanza, checkQuotes},
    {"trailing-comment", Severity::Warning, Subject::Stanza, checkComments},
    {"not-a-boolean", Severity::Warning, Subject::Stanza, checkBooleans},
    {"not-a-number", Severity::Warning, Subject::Monitor, checkNumbers},
    {"bad-pattern", Severity::Error, Subject::Monitor, checkPatterns},
    {"bad-type", Severity::Error, Subject::Monitor, checkTypes},
    {"single-backslash", Severity::Warning, Subject::Monitor, checkSingleBackslash},
    {"folded-escape", Severity::Warning, Subject::Monitor, checkFoldedEscape},
    {"type-case", Severity::Warning, Subject::Rules, checkTypeCase},
    {"matches-nothing", Severity::Warning, Subject::Rules, checkMatchesNothing},
    {"hkcc", Severity::Warning, Subject::Rules, checkCurrentConfig},
    {"control-set-hidden", Severity::Warning, Subject::Rules, checkHiddenControlSet},
    {"control-set-unnamed", Severity::Warning, Subject::Rules, checkUnnamedControlSet},
    {"name-taken", Severity::Warning, Subject::Rules, checkTakenName},
    {"no-tail", Severity::Warning, Subject::Rules, checkTail},
    {"plain-path", Severity::Note, Subject::Rules, checkPlainPath},
    {"baseline-nowhere", Severity::Warning, Subject::Rules, checkBaselineStart},
    {"baseline-root", Severity::Warning, Subject::Rules, checkBaselineRoot},
    {"explosive", Severity::Warning, Subject::Rules, checkExplosive},
    {"line-end", Severity::Note, Subject::Rules, checkLineEnd},
    {"key-itself", Severity::Note, Subject::Rules, checkKeyItself},
    {"wow64", Severity::Note, Subject::Rules, checkWow64},
};

bool concerns(Subject subject, const StanzaAtHand &at)
{
    const bool isOwn = isOfScheme(at.stanza(), at.request.scheme);
    const bool isMonitor = isOwn && at.request.scheme == kMonitorScheme;
    switch (subject) {
    case Subject::Stanza:
        return isOwn;
    case Subject::Monitor:
        return isMonitor;
    case Subject::Rules:
        return isMonitor && at.checked.rules != nullptr;
    case Subject::Foreign:
        return !isOwn;
    }
    return false;
}

void checkOne(const StanzaAtHand &at, Findings &findings)
{
    for (const CodedCheck &row : kChecks) {
        if (!concerns(row.subject, at)) {
            continue;
        }
        Findings found;
        Report report(row.code, row.severity, at.stanza(), found);
        row.check(at, report);
        // Quotes and remarks make another pattern of a value than anybody meant. They are found by
        // themselves; what else comes of that pattern would only hide them.
        std::ranges::copy_if(found, std::back_inserter(findings), [&](const Finding &finding) {
            return row.subject != Subject::Rules || !hasQuotesOrRemark(at.value(finding.key.c_str()));
        });
    }
}

/// By file and line, each once: stanzas that inherit from one section all find the fault in it.
Findings inOrder(Findings findings)
{
    const auto order = [](const Finding &finding) {
        return std::tie(finding.place.layer, finding.place.file, finding.place.line);
    };
    std::ranges::stable_sort(findings, {}, order);
    Findings once;
    for (Finding &finding : findings) {
        const auto isSame = [&](const Finding &other) {
            return order(other) == order(finding) && other.stanza == finding.stanza &&
                   other.key == finding.key && other.code == finding.code && other.message == finding.message;
        };
        if (std::ranges::none_of(once, isSame)) {
            once.push_back(std::move(finding));
        }
    }
    return once;
}

} // namespace

void Report::add(Severity severity, const Str &key, const Str &message)
{
    // A setting that is missing has no line; the header is where it would be added.
    const auto place = stanza_.places.find(key);
    if (key.empty() || place == stanza_.places.end()) {
        findings_.push_back({stanza_.header, stanza_.name, key, severity, code_, message});
        return;
    }
    const Str &section = stanza_.properties.properties.at(key).originStanza;
    findings_.push_back({place->second, section, key, severity, code_, message});
}

void Report::addAt(const ConfPlace &place, const Str &section, const Str &key, const Str &message)
{
    findings_.push_back({place, section, key, severity_, code_, message});
}

bool isOfScheme(const ConfiguredStanza &stanza, const Str &scheme)
{
    return stanza.name.startsWith(Str::concat(scheme, "://").view());
}

Findings checkStanzas(const ConfiguredStanzas &stanzas, const CheckRequest &request)
{
    std::vector<const ConfiguredStanza *> own;
    std::vector<const ConfiguredStanza *> foreign;
    for (const ConfiguredStanza &stanza : stanzas) {
        (isOfScheme(stanza, request.scheme) ? own : foreign).push_back(&stanza);
    }
    const CheckedStanzas all = request.scheme == kMonitorScheme ? compileStanzas(own) : CheckedStanzas();
    Findings findings;
    for (const CheckedStanza &checked : all.stanzas) {
        checkOne({request, all, checked}, findings);
    }
    // Of another scheme than the monitor's no stanza was compiled. The checks of settings still hold for it.
    if (all.stanzas.empty()) {
        foreign.insert(foreign.end(), own.begin(), own.end());
    }
    for (const ConfiguredStanza *stanza : foreign) {
        checkOne({request, all, {stanza, nullptr}}, findings);
    }
    return inOrder(std::move(findings));
}

} // namespace velmox
