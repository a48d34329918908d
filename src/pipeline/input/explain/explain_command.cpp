#include "pipeline/input/explain/explain_command.h"

#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/explain/hive_pattern.h"
#include "pipeline/input/explain/kernel_path.h"
#include "pipeline/input/rules/registry_operations.h"

namespace velmox {

namespace {

constexpr int kDropped = 1;
constexpr char kDefaultIndex[] = "default";

// A value is set; by this operation its type is what the value says.
constexpr std::uint32_t kSetValue = 16;
constexpr std::uint32_t kLastValueType = 11;

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

    /// False at one that makes no sense, and without a key.
    bool read(Question &question)
    {
        while (at_ != end_) {
            if (!takeSwitch(question) && !takeText(question)) {
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
};

/// The word of an operation that is called by it, or as events call it.
Str wordOf(const Str &operation)
{
    const auto masks = registryOperationMasks();
    const Str folded = operation.lowered();
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
    for (std::uint32_t type = 0; type <= kLastValueType; ++type) {
        if (valueType.compareCaseless(dataTypeName(kSetValue, type)) == 0) {
            constexpr unsigned char kData[] = {'a', 0, 'b', 0, 0, 0, 0, 0};
            Str shown;
            renderValueData(kSetValue, type, kData, sizeof kData, shown);
            return {dataTypeName(kSetValue, type), !shown.empty()};
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
