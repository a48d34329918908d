#include "pipeline/input/explain/explain_command.h"

#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/explain/explanation.h"
#include "pipeline/input/rules/registry_operations.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

namespace velmox {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kDropped = 1;
constexpr char kDefaultIndex[] = "default";

// The code of RegNtPostSetValueKey: a value is set, and by this operation its type is what the value says.
// Types go up to REG_QWORD (winnt.h).
constexpr std::uint32_t kSetValue = 16;
constexpr std::uint32_t kLastValueType = 11;

/// What a person asked about a value's type, which no rule looks at.
struct ValueTypeRemark
{
    /// Empty if nothing was asked.
    Str type;
    bool isDataShown = false;
};

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

/// In whole lines; the last one is the verdict, `-` standing for what the event does not carry.
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
    // The verdict is the last line, for whoever reads it with a script.
    if (!explanation.isAccepted()) {
        return text << "dropped\n";
    }
    const Explanation::Naming event = carried(explanation);
    text << "event       " << namingText(explanation) << '\n';
    return text << "accepted stanza=" << orDash(event.stanza) << " index=" << orDash(event.index) << '\n';
}

/// One object on one line.
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

/// What stands on the command line of `explain`.
struct Question
{
    Str key;
    Str process;
    Str operation = "set";
    Str valueType;
    bool asJson = false;
    StanzaDefaults defaults;
};

/// Takes the options one after the other.
class Options
{
public:
    explicit Options(const StrVector &arguments) : at_(arguments.begin()), end_(arguments.end()) {}

    /// False at one that makes no sense or comes twice, and without a key.
    bool read(Question &question)
    {
        while (at_ != end_) {
            // An option that comes twice is refused: the last one would win without a word.
            if (!taken_.insert(*at_).second || (!takeSwitch(question) && !takeText(question))) {
                return false;
            }
        }
        if (question.defaults.index.empty()) {
            question.defaults.index = kDefaultIndex;
        }
        return !question.key.empty();
    }

private:
    bool takeSwitch(Question &question)
    {
        if (*at_ != "--json") {
            return false;
        }
        question.asJson = true;
        ++at_;
        return true;
    }

    bool takeText(Question &question)
    {
        Str inclusive;
        const std::pair<const char *, Str *> kTexts[] = {{"--key", &question.key},
                                                         {"--process", &question.process},
                                                         {"--operation", &question.operation},
                                                         {"--value-type", &question.valueType},
                                                         {"-index", &question.defaults.index},
                                                         {"-inclusive", &inclusive}};
        for (const auto &[name, text] : kTexts) {
            if (*at_ == name && at_ + 1 != end_) {
                *text = *(at_ + 1);
                at_ += 2;
                question.defaults.inclusive = question.defaults.inclusive && inclusive != "0";
                return true;
            }
        }
        return false;
    }

    StrVector::const_iterator at_;
    StrVector::const_iterator end_;
    std::set<Str> taken_;
};

/// The word of an operation that is called by its word, such as "set", or as events call it, "SetValue".
Str wordOf(const Str &operation)
{
    const auto masks = registryOperationMasks();
    const Str folded = operation.lowered();
    // All codes that the monitor has names for. Several have one word, as the driver has one bit for them.
    for (std::uint32_t code = 0; code < 30; ++code) {
        const auto [name, word] = registryOperation(code);
        if (masks.contains(word) && (folded == word || folded == Str(name).lowered())) {
            return word;
        }
    }
    StrVector words;
    for (const auto &[word, mask] : masks) {
        words.push_back(word);
    }
    throw ExplainException(Str::fromFormat("There is no operation \"%s\"; the operations are %s",
                                           operation.c_str(), joined(words, ", ").c_str()));
}

/// Has the renderer show some data of the type.
ValueTypeRemark remarkOn(const Str &valueType)
{
    if (valueType.empty()) {
        return {};
    }
    const Str withPrefix = Str::concat("REG_", valueType);
    for (std::uint32_t type = 0; type <= kLastValueType; ++type) {
        const Str name = dataTypeName(kSetValue, type);
        if (valueType.compareCaseless(name) == 0 || withPrefix.compareCaseless(name) == 0) {
            // Whatever the type, there is something to show in it: a string, a list of one string, a number
            // of 32 or 64 bits.
            constexpr unsigned char kData[] = {'a', 0, 'b', 0, 0, 0, 0, 0};
            Str shown;
            renderValueData(kSetValue, type, kData, sizeof kData, shown);
            return {name, !shown.empty()};
        }
    }
    throw ExplainException(Str::fromFormat("There is no type of values \"%s\"", valueType.c_str()));
}

} // namespace

std::optional<ExplainAnswer> answerPattern(const StrVector &arguments)
{
    const bool wow64 = arguments.size() == 2 && (arguments[0] == "--wow64" || arguments[1] == "--wow64");
    if (arguments.size() != (wow64 ? 2 : 1)) {
        return std::nullopt;
    }
    HiveNames hiveNames;
    hiveNames.initHiveNameKeyMap();
    const Str &path = wow64 && arguments[0] == "--wow64" ? arguments[1] : arguments[0];
    const HivePattern pattern = hivePattern(readWrittenPath(path), wow64, currentUserKey(hiveNames));
    ExplainAnswer answer;
    answer.output << "hive = " << pattern.hive << '\n';
    for (const Str &note : pattern.notes) {
        answer.remarks << note << '\n';
    }
    return answer;
}

std::optional<ExplainAnswer> answerExplain(const StrVector &arguments,
                                           const std::function<Stanzas()> &stanzas)
{
    Question question;
    if (!Options(arguments).read(question)) {
        return std::nullopt;
    }
    const ValueTypeRemark valueType = remarkOn(question.valueType);
    const Operation operation{wordOf(question.operation), readWrittenPath(question.key), question.process};
    const Explanation explanation = explain(stanzas(), question.defaults, operation);
    ExplainAnswer answer;
    answer.exitCode = explanation.isAccepted() ? 0 : kDropped;
    answer.output = question.asJson ? explanationJson(explanation) : explanationText(explanation, valueType);
    return answer;
}

} // namespace velmox
