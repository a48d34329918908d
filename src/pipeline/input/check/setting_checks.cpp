#include "conf/root/path_forms.h"
#include "pipeline/input/check/spelling.h"
#include "pipeline/input/check/stanza_checks.h"
#include "util/text/ascii.h"
#include "util/text/str_segment.h"

namespace velmox {

namespace {

constexpr std::string_view kSeparator = "://";
/// In front of a checkpoint's name, with which a file name may have 255 characters.
constexpr std::size_t kLongestName = 255 - sizeof "filter_" + 1;

bool isOwnKey(const ConfiguredStanza &stanza, const Str &key)
{
    return stanza.properties.properties.at(key).originStanza == stanza.name;
}

Str shortName(const ConfiguredStanza &stanza)
{
    return stanza.name.substr(stanza.name.find(kSeparator) + kSeparator.size());
}

/// What stands on the line that a value has taken in; empty for a line that is nothing by itself.
Str lineKind(std::string_view line, const std::set<Str> &keys)
{
    const std::string_view text = trimmedView(line);
    if (text.starts_with('[')) {
        return Str() << "the header " << text;
    }
    const std::string_view key = trimmedView(text.substr(0, text.find('=')));
    return keys.contains(Str(key)) ? Str() << "the key " << key : Str("the next line");
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
        const std::size_t end = property.value.find('\n');
        if (end == Str::npos) {
            continue;
        }
        const std::string_view behind = property.value.view().substr(end + 1);
        const Str kind = lineKind(behind.substr(0, behind.find('\n')), at.request.keys);
        report.add(key, Str() << "the backslash at the end takes " << kind
                              << " into this value, and is lost with it; end the value in something else");
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
