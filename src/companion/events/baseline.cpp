#include "companion/events/baseline.h"

#include "companion/stream/registry_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

using Json = nlohmann::ordered_json;

struct Change
{
    std::string_view name;
    std::string_view colour;
};

Change changeOf(const BaselineDifference &difference)
{
    if (difference.oldValue == nullptr) {
        return {"added", "\x1B[32m"};
    }
    return difference.newValue == nullptr ? Change{"removed", "\x1B[31m"} : Change{"changed", "\x1B[33m"};
}

Json valueJson(const BaselineValue &value)
{
    std::vector<std::string_view> strings;
    readValueStrings(value.type, value.data, strings);
    Json json = Json::object();
    json["type"] = value.type;
    if (!strings.empty()) {
        json["strings"] = strings;
    }
    return json;
}

std::string valueText(const BaselineValue *value)
{
    return value == nullptr ? std::string() : value->type + " " + value->data;
}

} // namespace

void Baseline::add(const StreamEvent &event, bool isSelected)
{
    if (!event.isBaseline()) {
        return;
    }
    // Each start of the monitor begins a stream, and walks the tree of a stanza that is due from its top. So
    // what an earlier stream said of the stanza is out of date with its first event in this one.
    Stanza &stanza = stanzas_.try_emplace(std::string(event.stanza), Stanza{event.stream, {}}).first->second;
    if (stanza.stream != event.stream) {
        stanza = {event.stream, {}};
    }
    // Streams spell the path of one value in several ways: with a short root or the kernel's, in any case.
    stanza.values.insert_or_assign(comparableRegistryPath(event.keyPath),
                                   BaselineValue{std::string(event.keyPath), std::string(event.dataType),
                                                 std::string(event.data), isSelected, count_++});
}

// The views lead into the keys of `stanzas_`, which stay where they are.
std::map<std::string_view, const BaselineValue *> Baseline::all() const
{
    std::map<std::string_view, const BaselineValue *> all;
    for (const auto &[name, stanza] : stanzas_) {
        for (const auto &[path, value] : stanza.values) {
            const BaselineValue *&latest = all[path];
            if (latest == nullptr || latest->number < value.number) {
                latest = &value;
            }
        }
    }
    return all;
}

void Baseline::compareStanzas(const Baseline &other,
                              const std::function<void(const std::string &)> &onMissing) const
{
    for (const auto &[name, stanza] : stanzas_) {
        if (!other.stanzas_.contains(name)) {
            onMissing(name);
        }
    }
}

void Baseline::compare(const Baseline &oldOne, const Baseline &newOne, const OnDifference &onDifference)
{
    const auto olds = oldOne.all();
    const auto news = newOne.all();
    auto oldAt = olds.begin();
    auto newAt = news.begin();
    while (oldAt != olds.end() || newAt != news.end()) {
        // Both go by path: the smaller path is next, and a path that both have is taken of both at once.
        const bool isOld = oldAt != olds.end() && (newAt == news.end() || oldAt->first <= newAt->first);
        const bool isNew = newAt != news.end() && (oldAt == olds.end() || newAt->first <= oldAt->first);
        const BaselineValue *const oldValue = isOld ? (oldAt++)->second : nullptr;
        const BaselineValue *const newValue = isNew ? (newAt++)->second : nullptr;
        const bool isDifferent = !isOld || !isNew || *oldValue != *newValue;
        // Conditions choose among differences. Were the values chosen first, one whose new data no longer
        // meets a condition would read as removed.
        if (isDifferent && ((isOld && oldValue->isSelected) || (isNew && newValue->isSelected))) {
            onDifference({(isNew ? newValue : oldValue)->path, oldValue, newValue});
        }
    }
}

void appendDifferenceJson(const BaselineDifference &difference, std::string &out)
{
    Json json = Json::object();
    json["change"] = changeOf(difference).name;
    json["path"] = difference.path;
    if (difference.oldValue != nullptr) {
        json["old"] = valueJson(*difference.oldValue);
    }
    if (difference.newValue != nullptr) {
        json["new"] = valueJson(*difference.newValue);
    }
    out += json.dump();
    out += '\n';
}

void appendDifferenceRow(const BaselineDifference &difference, TableStyle style, std::string &out)
{
    constexpr unsigned kChangeWidth = 7;
    constexpr unsigned kSeparators = 3;
    constexpr unsigned kLeastShared = 30;
    const Change change = changeOf(difference);
    // For programs: whole texts, with tabs between them.
    if (style.width == 0) {
        out += change.name;
        for (const std::string &text :
             {difference.path, valueText(difference.oldValue), valueText(difference.newValue)}) {
            out += '\t';
            appendCell(text, out);
        }
        out += '\n';
        return;
    }
    // Half of what is left is for the path, a quarter for each text.
    constexpr unsigned kUsed = kChangeWidth + kSeparators;
    const unsigned value = (std::max(style.width, kUsed + kLeastShared) - kUsed) / 4;
    out += style.isColoured ? change.colour : std::string_view();
    appendCell(change.name, kChangeWidth, false, true, out);
    out += style.isColoured ? "\x1B[0m" : "";
    out += ' ';
    appendCell(difference.path, 2 * value, true, true, out);
    out += ' ';
    appendCell(valueText(difference.oldValue), value, false, true, out);
    out += ' ';
    appendCell(valueText(difference.newValue), value, false, false, out);
    out += '\n';
}

} // namespace velmox
