#include "conf/root/path_forms.h"
#include "pipeline/input/check/stanza_checks.h"
#include "util/text/ascii.h"
#include "util/text/str_segment.h"

#include <algorithm>
#include <optional>

namespace velmox {

namespace {

constexpr std::string_view kSeparator = "://";
constexpr std::size_t kShortWord = 4;
/// Of the 255 characters that a file name may have, what "filter_" leaves.
constexpr std::size_t kLongestName = 255 - sizeof "filter_" + 1;

/// How many letters one has to change, add, leave out or swap with the next to come from one word to the
/// other, in any case.
std::size_t letterChanges(const Str &from, const Str &to)
{
    const Str a = from.lowered();
    const Str b = to.lowered();
    // Distances of the beginnings of `a` from those of `b`: a row for each, of which two are looked back at.
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t changed = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            rows[i][j] = std::min({changed, rows[i - 1][j] + 1, rows[i][j - 1] + 1});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[a.size()][b.size()];
}

/// Of the names the one that was likely meant: at most two letters off, of a short word one. Empty for none.
Str nearestName(const Str &word, const std::set<Str> &names)
{
    Str nearest;
    std::size_t fewest = word.size() <= kShortWord ? 2 : 3;
    for (const Str &name : names) {
        const std::size_t changes = letterChanges(word, name);
        if (changes < fewest) {
            fewest = changes;
            nearest = name;
        }
    }
    return nearest;
}

bool isOwnKey(const ConfiguredStanza &stanza, const Str &key)
{
    return stanza.properties.properties.at(key).originStanza == stanza.name;
}

Str shortName(const ConfiguredStanza &stanza)
{
    return stanza.name.substr(stanza.name.find(kSeparator) + kSeparator.size());
}

/// The line that a value has taken in, without blanks around it; nothing for a value of one line.
std::optional<std::string_view> swallowedLine(const Str &value)
{
    const std::size_t end = value.find('\n');
    if (end == Str::npos) {
        return std::nullopt;
    }
    const std::string_view behind = value.view().substr(end + 1);
    return trimmedView(behind.substr(0, behind.find('\n')));
}

void reportSwallowed(const Str &key, const Str &what, Report &report)
{
    report.add(key, Str() << "the value ends in a backslash and takes in " << what
                          << ", which is lost as such; end it in something else");
}

/// Where something begins that was likely meant for a remark: a blank, then `#` and a blank or a letter, or
/// `;` and a blank. `#1` is a name.
std::size_t findRemark(const Str &value)
{
    for (std::size_t sign = value.view().find_first_of("#;", 1); sign != Str::npos;
         sign = value.view().find_first_of("#;", sign + 1)) {
        const char next = sign + 1 < value.size() ? value[sign + 1] : ' ';
        const bool isWord = value[sign] == '#' && isAsciiAlphanumeric(next) && !isAsciiDigit(next);
        if (CharSet::blanks().contains(value[sign - 1]) && (isWord || CharSet::blanks().contains(next))) {
            return sign;
        }
    }
    return Str::npos;
}

Str nameFault(const Str &name)
{
    const std::ptrdiff_t unsafe = name.findFirst(kUnsafeInNames, 0, true);
    if (unsafe >= 0) {
        return Str::fromFormat("%c stands in no file name", name[static_cast<std::size_t>(unsafe)]);
    }
    if (isReservedName(name)) {
        return name.endsWith(".") || name.endsWith(" ") ? "file names lose dots and blanks at their end"
                                                        : "a device of the system has this name";
    }
    return name.size() > kLongestName ? "it is too long for a file name" : "";
}

} // namespace

void checkBooleans(const StanzaAtHand &at, Report &report)
{
    bool ignored = false;
    const Str disabled = at.value("disabled");
    if (!disabled.empty() && !disabled.toBool(ignored)) {
        report.add("disabled", Str::fromFormat("\"%s\" is no boolean, and turns the stanza off; write 0 or 1",
                                               disabled.c_str()));
    }
    const Str baseline = at.value("baseline");
    if (at.request.scheme == kMonitorScheme && !baseline.empty() && !baseline.toBool(ignored)) {
        report.add("baseline",
                   Str::fromFormat("\"%s\" is no boolean, and counts as 0; write 0 or 1", baseline.c_str()));
    }
}

void checkNumbers(const StanzaAtHand &at, Report &report)
{
    constexpr char kKey[] = "baseline_interval";
    const Str value = at.value(kKey);
    std::uint64_t ignored = 0;
    if (value.empty() || StrSegment(value).parseUnsigned(ignored)) {
        return;
    }
    const long long seconds = value.toInt64(0, 10);
    report.add(kKey, Str() << '"' << value << "\" is no number of seconds, and counts as " << seconds
                           << (seconds <= 0 ? ": a baseline at every start" : ""));
}

void checkUnknownKeys(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        // What is inherited may be meant for other schemes.
        if (at.request.keys.contains(key) || !isOwnKey(at.stanza(), key)) {
            continue;
        }
        const Str nearest = nearestName(key, at.request.keys);
        Str message = "nothing reads this key";
        if (!nearest.empty()) {
            message << "; there is \"" << nearest << '"';
        }
        report.add(key, message);
    }
}

void checkSwallowedLines(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        const std::optional<std::string_view> line = swallowedLine(property.value);
        if (!line) {
            continue;
        }
        const Str name(trimmedView(line->substr(0, line->find('='))));
        const bool isKey = at.request.keys.contains(name);
        reportSwallowed(key,
                        line->starts_with('[') ? Str() << "the header " << *line
                        : isKey                ? Str() << "the key " << name
                                               : Str("the next line"),
                        report);
    }
}

void checkSwallowedHeaders(const StanzaAtHand &at, Report &report)
{
    const Str header = Str() << '[' << at.request.scheme << kSeparator;
    for (const auto &[key, property] : at.stanza().properties.properties) {
        const std::optional<std::string_view> line = swallowedLine(property.value);
        if (line && line->starts_with(header.view())) {
            reportSwallowed(key, Str() << "the header " << *line, report);
        }
    }
}

void checkQuotes(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        const Str &value = property.value;
        const bool isQuoted =
            value.size() > 1 && (value[0] == '"' || value[0] == '\'') && value[value.size() - 1] == value[0];
        if (isQuoted) {
            report.add(key, "the quotes are part of the value; leave them out");
        }
    }
}

void checkComments(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        const std::size_t remark = findRemark(property.value);
        if (remark != Str::npos) {
            report.add(key, Str() << '"' << property.value.substr(remark)
                                  << "\" is part of the value; put remarks on lines of their own");
        }
    }
}

void checkSchemeSpelling(const StanzaAtHand &at, Report &report)
{
    const Str &name = at.stanza().name;
    const Str scheme(trimmedView(name.view().substr(0, name.find(':'))));
    // Another scheme that there is was meant as it is written.
    if (at.request.schemes.contains(scheme) && name.startsWith(Str::concat(scheme, kSeparator).view())) {
        return;
    }
    if (name.contains(":") && letterChanges(scheme, at.request.scheme) <= 1) {
        report.add("", Str() << "nothing reads this stanza: its name must begin with " << at.request.scheme
                             << kSeparator << ", in these letters and without a blank");
    }
}

void checkMissingHive(const StanzaAtHand &at, Report &report)
{
    if (!at.stanza().isEnabled() || !at.value("hive").empty()) {
        return;
    }
    Str message = "there is no hive, so that the stanza is about every key";
    for (const auto &[key, property] : at.stanza().properties.properties) {
        if (!at.request.keys.contains(key) && nearestName(key, at.request.keys) == "hive") {
            message << "; was \"" << key << "\" meant for it?";
            break;
        }
    }
    report.add(at.stanza().places.contains("hive") ? "hive" : "", message);
}

void checkName(const StanzaAtHand &at, Report &report)
{
    if (!at.stanza().properties.getBool("baseline", false)) {
        return;
    }
    const Str name = shortName(at.stanza());
    Str fault = nameFault(name);
    for (const CheckedStanza &other : at.all.stanzas) {
        const bool isTwin = other.stanza != &at.stanza() &&
                            other.stanza->properties.getBool("baseline", false) &&
                            shortName(*other.stanza).compareCaseless(name) == 0;
        if (fault.empty() && isTwin) {
            fault = Str::concat("file names do not tell it from ", shortName(*other.stanza));
        }
    }
    if (!fault.empty()) {
        report.add("", Str() << "the checkpoint file filter_" << name
                             << " of its baseline fails or lands elsewhere: " << fault);
    }
}

} // namespace velmox
