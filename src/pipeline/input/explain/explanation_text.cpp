#include "pipeline/input/explain/explanation_text.h"

#include "pipeline/input/rules/registry_operations.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

using Json = nlohmann::ordered_json;

StrVector askedOperations(const MonitorFilterConfig &asked)
{
    StrVector words;
    for (const auto &[word, mask] : registryOperationMasks()) {
        if ((asked.ops & mask) != 0) {
            words.push_back(word);
        }
    }
    return words;
}

StrVector askedHives(const MonitorFilterConfig &asked)
{
    StrVector hives;
    if ((asked.hives & kMachineHives) != 0) {
        hives.push_back("HKLM");
    }
    if ((asked.hives & kUserHives) != 0) {
        hives.push_back("HKU");
    }
    return hives;
}

const char *yesOrNo(bool yes)
{
    return yes ? "yes" : "no";
}

void appendKey(Str &text, const Explanation &explanation)
{
    text << "key         " << explanation.keyPath << "\n            " << explanation.keyRemark << '\n';
    if (explanation.isControlSetRenamed) {
        text << "            " << explanation.filteredPath
             << "\n            as the stanzas see it, since one of them names the current control set\n";
    }
}

void appendStanzas(Str &text, const Explanation &explanation)
{
    text << "\nstanzas, in the order in which they are asked at first:\n";
    for (const StanzaAnswer &answer : explanation.stanzas) {
        text << "  " << answer.name << "\n      process " << yesOrNo(answer.process) << ", key "
             << yesOrNo(answer.key) << ", type " << yesOrNo(answer.type) << '\n';
        if (!answer.why.empty()) {
            text << "      " << answer.why << '\n';
        }
    }
}

Str driverText(const Explanation &explanation)
{
    const StrVector operations = askedOperations(explanation.asked);
    Str text = "is asked for ";
    text << (operations.empty() ? Str("no operation") : joined(operations, ", ")) << " in "
         << joined(askedHives(explanation.asked), " and ") << ": it ";
    return text << (explanation.isReported ? "reports this" : "does not report this");
}

Str verdictText(const Explanation &explanation)
{
    const auto first = std::ranges::find_if(explanation.stanzas, &StanzaAnswer::matches);
    Str text = explanation.passes ? "let through" : "dropped";
    if (first == explanation.stanzas.end()) {
        text << ", as no stanza matches";
    } else {
        text << ", as " << first->name << " matches";
    }
    if (!explanation.inclusive) {
        text << " and stanzas say what is not reported";
    }
    return text;
}

Str namingText(const Explanation &explanation)
{
    if (!explanation.naming) {
        return "no stanza names it: no hive is found in the path as the kernel spells it";
    }
    return Str::fromFormat(
        "%s names it: of the hives that are found anywhere in the path its is the longest, %u "
        "bytes with the root put in; neither process nor type counts here",
        explanation.naming->stanza.c_str(), static_cast<unsigned>(explanation.naming->length));
}

Str orDash(const Str &text)
{
    return text.empty() ? Str("-") : text;
}

Json textOrNull(const Str &text)
{
    return text.empty() ? Json() : Json(text.view());
}

Json list(const StrVector &texts)
{
    Json all = Json::array();
    for (const Str &text : texts) {
        all.push_back(text.view());
    }
    return all;
}

/// What the event carries; nothing without one.
Explanation::Naming carried(const Explanation &explanation)
{
    return explanation.isAccepted() && explanation.naming ? *explanation.naming : Explanation::Naming();
}

} // namespace

Str explanationText(const Explanation &explanation, const ValueTypeRemark &valueType)
{
    Str text;
    text << "operation   " << explanation.word << '\n';
    text << "process     "
         << (explanation.process.empty() ? Str("not given: taken for one that the monitor does not know")
                                         : explanation.process)
         << '\n';
    appendKey(text, explanation);
    if (!valueType.type.empty()) {
        text << "value type  " << valueType.type << ": no stanza looks at it; the event "
             << (valueType.isDataShown ? "shows the data\n" : "does not show the data\n");
    }
    appendStanzas(text, explanation);
    text << "\nverdict     " << verdictText(explanation) << '\n';
    text << "driver      " << driverText(explanation) << '\n';
    if (!explanation.isAccepted()) {
        return text << "dropped\n";
    }
    const Explanation::Naming event = carried(explanation);
    text << "event       " << namingText(explanation) << '\n';
    return text << "accepted stanza=" << orDash(event.stanza) << " index=" << orDash(event.index) << '\n';
}

Str explanationJson(const Explanation &explanation)
{
    const Explanation::Naming event = carried(explanation);
    Json json;
    json["accepted"] = explanation.isAccepted();
    json["stanza"] = textOrNull(event.stanza);
    json["index"] = textOrNull(event.index);
    json["key"] = explanation.keyPath.view();
    json["asked"] = {{"operations", list(askedOperations(explanation.asked))},
                     {"hives", list(askedHives(explanation.asked))},
                     {"reported", explanation.isReported}};
    json["stanzas"] = Json::array();
    for (const StanzaAnswer &answer : explanation.stanzas) {
        json["stanzas"].push_back({{"name", answer.name.view()},
                                   {"process", answer.process},
                                   {"key", answer.key},
                                   {"type", answer.type},
                                   {"why", answer.why.empty() ? "matches" : answer.why.view()}});
    }
    return Str(json.dump(-1, ' ', false, Json::error_handler_t::replace)).append("\n");
}

} // namespace velmox
