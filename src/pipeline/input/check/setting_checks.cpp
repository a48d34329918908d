#include "conf/root/path_forms.h"
#include "pipeline/input/check/stanza_checks.h"
#include "util/text/ascii.h"
#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::string_view kSeparator = "://";
constexpr std::size_t kShortWord = 4;
/// Of the 255 characters that a file name may have, what "filter_" leaves.
constexpr std::size_t kLongestName = 255 - sizeof "filter_" + 1;

/// How many letters one has to change, add, leave out or swap with the next to come from one word to the
/// other, in any case: the distance of Damerau and Levenshtein, in the form in which no letter is touched
/// twice.
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

/// Of the names the one that was likely meant: at most two letters off, of a short word one, or one that the
/// word begins with. Empty for none.
Str nearestName(const Str &word, const std::set<Str> &names)
{
    Str nearest;
    // Two letters off, a short word can be any other.
    std::size_t fewest = word.size() <= kShortWord ? 2 : 3;
    for (const Str &name : names) {
        const std::size_t changes = letterChanges(word, name);
        if (changes < fewest) {
            fewest = changes;
            nearest = name;
        }
    }
    const Str folded = word.lowered();
    const auto isFront = [&](const Str &name) { return folded.startsWith(name.view()); };
    const auto front = std::ranges::find_if(names, isFront);
    return nearest.empty() && front != names.end() ? *front : nearest;
}

bool isOwnKey(const ConfiguredStanza &stanza, const Str &key)
{
    return stanza.properties.properties.at(key).originStanza == stanza.name;
}

Str shortName(const ConfiguredStanza &stanza)
{
    return stanza.name.substr(stanza.name.find(kSeparator) + kSeparator.size());
}

void reportSwallowed(const SwallowedLine &line, Report &report)
{
    const bool isHeader = line.taken.startsWith("[");
    const bool isRemark = line.taken.startsWith("#") || line.taken.startsWith(";");
    const std::size_t sign = isHeader   ? line.taken.size()
                             : isRemark ? Str::npos
                                        : line.taken.view().find('=');
    Str what = "next line";
    if (sign != Str::npos) {
        what = Str() << (isHeader ? "header " : "key ")
                     << shortened(Str(trimmedView(line.taken.view().substr(0, sign))))
                     << ", which is lost as such";
    }
    report.addAt(line.place, line.stanza, line.key,
                 Str() << "the line ends in a backslash and takes in the " << what
                       << "; end it in something else");
}

/// Whether a name in a path goes on behind a sign with blanks around it: separators follow that belong to no
/// path of their own, and nothing stands before it that ends a pattern. A blank that is escaped is part of a
/// name in any case.
bool isWithinName(std::string_view before, std::string_view behind)
{
    static constexpr CharSet kEnds("*+?)$");
    static constexpr std::string_view kRoots[] = {"HKLM\\", "HKU\\", "HKCU\\", "HKCR\\", "HKCC\\", "HKEY_"};
    const std::string_view text = trimmedView(before);
    if (text.ends_with('\\') && text.size() < before.size()) {
        return true;
    }
    const bool isEnded =
        text.empty() || (kEnds.contains(text.back()) && !text.substr(0, text.size() - 1).ends_with('\\'));
    const bool hasPath =
        std::ranges::any_of(kRoots, [&](std::string_view root) { return behind.find(root) != behind.npos; });
    return !isEnded && !hasPath && behind.find("\\\\") != behind.npos;
}

/// Where something begins that was likely meant for a remark: behind a blank or in front of all, signs and
/// then a blank, or `#` and a letter. In a pattern or a name `#1` is a name.
std::size_t findRemark(const Str &value, bool mayHoldNames = true)
{
    const std::string_view text = value.view();
    for (std::size_t sign = text.find_first_of("#;"); sign != Str::npos;
         sign = text.find_first_of("#;", sign + 1)) {
        const std::string_view behind =
            text.substr(std::min(text.find_first_not_of("#;", sign), text.size()));
        const bool isApart = behind.empty() ? sign > 0 : CharSet::blanks().contains(behind[0]);
        const bool isWord = sign > 0 && text[sign] == '#' && !behind.empty() &&
                            isAsciiAlphanumeric(behind[0]) && !isAsciiDigit(behind[0]);
        if ((sign == 0 || CharSet::blanks().contains(text[sign - 1])) &&
            (isApart || isWord || !mayHoldNames) && !isWithinName(text.substr(0, sign), text.substr(sign))) {
            return sign;
        }
    }
    return Str::npos;
}

/// Whether quotes stand around a value, or around what is in front of a remark.
bool isQuoted(const Str &value)
{
    const std::string_view text = trimmedView(value.view().substr(0, findRemark(value)));
    // Those of word processors too, which come along when a pattern is copied.
    static constexpr std::pair<std::string_view, std::string_view> kQuotes[] = {
        {"\"", "\""}, {"'", "'"}, {"\u201C", "\u201D"}, {"\u2018", "\u2019"}, {"\u201E", "\u201C"}};
    return std::ranges::any_of(kQuotes, [&](const auto &quotes) {
        return text.size() > quotes.first.size() && text.starts_with(quotes.first) &&
               text.ends_with(quotes.second);
    });
}

Str nameFault(const Str &name)
{
    const std::ptrdiff_t unsafe = name.findFirst(kUnsafeInNames, 0, true);
    if (unsafe >= 0) {
        return Str::fromFormat("%c stands in no file name", name[static_cast<std::size_t>(unsafe)]);
    }
    if (std::ranges::any_of(name, [](char byte) { return byte >= '\0' && byte < ' '; })) {
        return "control characters stand in no file name";
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
                                               shortened(disabled).c_str()));
    }
    const Str baseline = at.value("baseline");
    if (at.request.scheme == kMonitorScheme && !baseline.empty() && !baseline.toBool(ignored)) {
        report.add("baseline", Str::fromFormat("\"%s\" is no boolean, and counts as 0; write 0 or 1",
                                               shortened(baseline).c_str()));
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
    // As the monitor reads it: the digits in front, 0 without any.
    const long long seconds = value.toInt64(0, 10);
    report.add(kKey, Str() << '"' << shortened(value) << "\" is no number of seconds, and counts as "
                           << seconds << (seconds <= 0 ? ": a baseline at every start" : ""));
}

void checkUnknownKeys(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        // What is inherited may be meant for other schemes.
        if (at.request.keys.contains(key) || !isOwnKey(at.stanza(), key)) {
            continue;
        }
        // Nothing could be advised for it, as any name is as near as another.
        if (key.empty()) {
            report.addAt(at.stanza().places.at(key), at.stanza().name, key,
                         "nothing reads this line, as the key in front of \"=\" is empty");
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
    for (const SwallowedLine &line : at.stanza().swallowed) {
        reportSwallowed(line, report);
    }
}

void checkSwallowedHeaders(const StanzaAtHand &at, Report &report)
{
    const Str header = Str() << '[' << at.request.scheme << kSeparator;
    for (const SwallowedLine &line : at.stanza().swallowed) {
        if (line.taken.startsWith(header.view())) {
            reportSwallowed(line, report);
        }
    }
}

bool hasQuotesOrRemark(const Str &value)
{
    return isQuoted(value) || findRemark(value) != Str::npos;
}

void checkQuotes(const StanzaAtHand &at, Report &report)
{
    for (const auto &[key, property] : at.stanza().properties.properties) {
        if (isQuoted(property.value)) {
            report.add(key, "the quotes are part of the value; leave them out");
        }
    }
}

void checkComments(const StanzaAtHand &at, Report &report)
{
    static const std::set<Str> kWithoutNames = {"disabled", "baseline", "baseline_interval", "type"};
    for (const auto &[key, property] : at.stanza().properties.properties) {
        const std::size_t remark = findRemark(property.value, !kWithoutNames.contains(key));
        if (remark != Str::npos) {
            report.add(key, Str() << '"' << shortened(property.value.substr(remark))
                                  << "\" is part of the value; put remarks on lines of their own");
        }
    }
}

void checkNameStart(const StanzaAtHand &at, Report &report)
{
    static constexpr CharSet kSigns(":;/");
    const Str name = shortName(at.stanza());
    if (!name.empty() && kSigns.contains(name[0])) {
        report.add("", Str() << "its name begins with " << name[0] << ", as all behind " << at.request.scheme
                             << kSeparator << " is the name; leave that out");
    }
}

void checkSchemeSpelling(const StanzaAtHand &at, Report &report)
{
    const Str &name = at.stanza().name;
    const std::size_t end = name.view().find_first_of(":;/");
    const Str scheme(trimmedView(name.view().substr(0, end)));
    // Another scheme that there is was meant as it is written.
    if (scheme != at.request.scheme && at.request.schemes.contains(scheme)) {
        return;
    }
    // Something else than the separator may follow the scheme.
    static constexpr CharSet kNameSigns("-_.");
    const std::string_view start = name.view().substr(0, at.request.scheme.size());
    const char next = start.size() < name.size() ? name[start.size()] : 'a';
    const bool isBegun = Str(start).compareCaseless(at.request.scheme) == 0 && !isAsciiAlphanumeric(next) &&
                         !kNameSigns.contains(next);
    // Blanks around it and its case are gone by now, so that a distance of 0 is a fault of spelling too.
    if (isBegun || letterChanges(scheme, at.request.scheme) <= 1) {
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
