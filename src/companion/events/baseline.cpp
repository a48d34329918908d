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
    Stanza &stanza =
        stanzas_.try_emplace(std::string(event.stanza), Stanza{stanzas_.size(), event.stream}).first->second;
    if (stanza.stream != event.stream) {
        std::erase_if(values_, [&](const auto &value) { return value.second.stanza == stanza.number; });
        stanza.stream = event.stream;
    }
    values_.insert_or_assign(comparableRegistryPath(event.keyPath),
                             BaselineValue{std::string(event.keyPath), std::string(event.dataType),
                                           std::string(event.data), isSelected, stanza.number});
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
    auto oldAt = oldOne.values_.begin();
    auto newAt = newOne.values_.begin();
    while (oldAt != oldOne.values_.end() || newAt != newOne.values_.end()) {
        const bool isOldLeft = oldAt != oldOne.values_.end();
        const bool isNewLeft = newAt != newOne.values_.end();
        const bool isOld = isOldLeft && (!isNewLeft || oldAt->first <= newAt->first);
        const bool isNew = isNewLeft && (!isOldLeft || newAt->first <= oldAt->first);
        const bool isDifferent = !isOld || !isNew || oldAt->second != newAt->second;
        if (isDifferent && ((isOld && oldAt->second.isSelected) || (isNew && newAt->second.isSelected))) {
            onDifference({isNew ? newAt->second.path : oldAt->second.path, isOld ? &oldAt->second : nullptr,
                          isNew ? &newAt->second : nullptr});
        }
        if (isOld) {
            ++oldAt;
        }
        if (isNew) {
            ++newAt;
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
