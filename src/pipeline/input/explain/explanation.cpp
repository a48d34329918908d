#include "pipeline/input/explain/explanation.h"

#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/events/record_at_hand.h"
#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "util/match/required_literals.h"
#include "util/text/ascii.h"

#include <algorithm>
#include <functional>

namespace velmox {

namespace {

/// Bytes of a path or pattern that an answer quotes.
constexpr std::size_t kMostShown = 40;
// Characters that end the literal beginning of a pattern.
constexpr CharSet kSyntax(".[](){}^$|*+?");
// Each of these can do away with the character in front of it.
constexpr CharSet kQuantifiers("*+?{");

bool isContinuation(char byte)
{
    return (byte & 0xC0) == 0x80;
}

unsigned characters(std::string_view text)
{
    return static_cast<unsigned>(std::ranges::count_if(text, std::not_fn(isContinuation)));
}

void dropCharacter(Str &text)
{
    std::size_t end = text.size();
    while (end > 0 && isContinuation(text[--end])) {
    }
    text.resize(end);
}

/// The text that any match of the whole begins with.
Str literalBeginning(std::string_view pattern)
{
    Str literal;
    // With alternatives no text begins every match.
    if (alternativesOf(pattern).size() > 1) {
        return literal;
    }
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        char c = pattern[at];
        if (kSyntax.contains(c)) {
            if (kQuantifiers.contains(c)) {
                dropCharacter(literal);
            }
            break;
        }
        if (c == '\\') {
            // A backslash takes its meaning from a special character and gives one to a letter or digit. At
            // the very end, where no pattern that compiles has one, it counts as a letter.
            c = ++at < pattern.size() ? pattern[at] : 'a';
            if (isAsciiAlphanumeric(c)) {
                break;
            }
        }
        literal.push_back(c);
    }
    return literal;
}

Str shown(std::string_view text)
{
    std::size_t end = std::min(text.size(), kMostShown);
    while (end < text.size() && isContinuation(text[end])) {
        --end;
    }
    Str quoted = "\"";
    for (const char c : text.substr(0, end)) {
        // No line of the answer ends where a name does.
        quoted.push_back(c >= '\0' && c < ' ' ? '?' : c);
    }
    return quoted << (end < text.size() ? "...\"" : "\"");
}

/// Empty if the path has the literal text.
Str departure(std::string_view literal, std::string_view path)
{
    auto [in, on] = std::ranges::mismatch(literal, path);
    if (in == literal.end()) {
        return {};
    }
    auto at = static_cast<std::size_t>(in - literal.begin());
    // Bytes differ within a character: the place is that of the character.
    while (at > 0 && (isContinuation(literal[at]) || (at < path.size() && isContinuation(path[at])))) {
        --at;
    }
    const unsigned place = characters(path.substr(0, at)) + 1;
    const std::size_t name = literal.substr(0, at).rfind('\\') + 1; // 0 without a backslash
    const Str wanted = shown(literal.substr(name));
    if (at == path.size()) {
        return Str::fromFormat("the path ends at character %u, where the pattern goes on with %s", place - 1,
                               shown(literal.substr(at)).c_str());
    }
    return Str::fromFormat("differs at character %u: the pattern has %s, the path %s", place, wanted.c_str(),
                           shown(path.substr(name)).c_str());
}

/// Empty if the text holds one of each set.
Str missingLiteral(const Regex &pattern, const Str &text)
{
    for (const LiteralSet &texts : requiredLiterals(pattern.pattern())) {
        if (std::ranges::none_of(texts, [&](const Str &one) { return text.contains(one.view()); })) {
            StrVector quoted;
            std::ranges::transform(texts, std::back_inserter(quoted),
                                   [](const Str &one) { return shown(one.view()); });
            return Str::concat(texts.size() > 1 ? "finds none of " : "does not find ", joined(quoted, ", "));
        }
    }
    return {};
}

constexpr std::size_t kDriveLength = 2;

// Where a driver record has what the rules look at.
constexpr std::uint32_t kClassOffset = 0;
constexpr std::uint32_t kOperationOffset = 8;
constexpr std::uint32_t kNameBytesOffset = 36;

/// Names the stanza by which a configuration fails. The rules do not: a stanza is tried by itself here.
[[noreturn]] void refuse(const Stanzas &stanzas, const StanzaDefaults &defaults, const RegexException &fault)
{
    Str text = fault.message();
    for (const auto &[name, stanza] : stanzas) {
        HiveNames names;
        names.initHiveNameKeyMap();
        try {
            if (const auto group = makeFilterGroup({{name, stanza}}, defaults, names)) {
                makeFilterBlock(*group, names, registryOperationMasks());
            }
        } catch (const RegexException &) {
            text << ", in the stanza " << name;
            break;
        }
    }
    throw ExplainException(Str::concat("The monitor would not run on these stanzas: ", text));
}

Str deviceForm(const Str &process)
{
    if (process.size() < kDriveLength || process[1] != ':') {
        return process;
    }
    const Str drive = process.substr(0, kDriveLength);
    Str device = systemDrives().translateProcessDrive(drive);
    // The translation is one of patterns, in which a backslash is doubled.
    device.replaceAll("\\\\", "\\");
    return Str::concat(device, process.substr(kDriveLength));
}

/// What the monitor's table of processes holds of a path, whose room is of a fixed size.
std::u16string imageOf(const Str &process)
{
    const WideStr wide = WideStr::fromUtf8(process);
    return std::u16string(wide.data(), std::min<std::size_t>(wide.size(), kImageUnits - 1));
}

/// A record of the driver's about the operation, with no more in it than the rules look at: made so that the
/// paths come by the monitor's own way from a record, and not by another one that may differ.
std::vector<unsigned char> recordOf(const Str &word, const Str &keyPath)
{
    // The word is one of the table, so the search ends. Which of several codes with this word is found makes
    // no difference to the rules.
    std::uint32_t code = 0;
    while (word != registryOperation(code).word) {
        ++code;
    }
    const WideStr name = WideStr::fromUtf8(keyPath);
    const auto nameBytes = static_cast<std::uint32_t>(name.size() * sizeof(char16_t));
    std::vector<unsigned char> bytes(MonitorRecord::kFixedBytes + nameBytes);
    for (const auto &[offset, field] : {std::pair{kClassOffset, kRegistryRecord},
                                        {kOperationOffset, code},
                                        {kNameBytesOffset, nameBytes}}) {
        std::memcpy(bytes.data() + offset, &field, sizeof field);
    }
    std::memcpy(bytes.data() + MonitorRecord::kNameOffset, name.data(), nameBytes);
    return bytes;
}

void add(Str &why, const char *what, const Str &reason)
{
    why << (why.empty() ? "" : "; ") << what << ' ' << reason;
}

StanzaAnswer answerOf(const RegMonEventFilter &filter, const SystemMonitoringConfig &config,
                      const SysMonFilterableEvent &event)
{
    StanzaAnswer answer;
    answer.name = config.name;
    answer.process = filter.matchesProcess(event.process);
    answer.key = filter.matchesKey(event.keyPath);
    answer.type = filter.matchesType(event.type);
    if (!answer.key) {
        add(answer.why, "key:", whyNotAll(config.hive, event.keyPath));
    }
    if (!answer.process) {
        const Regex proc(systemDrives().translateProcessDrive(config.proc.pattern()).lowered(), false, 0);
        add(answer.why,
            "process:", event.process.empty() ? Str("is not known") : whyNotFound(proc, event.process));
    }
    if (!answer.type) {
        add(answer.why, "type:",
            Str::fromFormat("\"%s\" is not found in \"%s\"", joined(config.types, "|").c_str(),
                            event.type.c_str()));
    }
    return answer;
}

void ask(MonitorFilterGroup &group, Explanation &result)
{
    SysMonFilterableEvent event{{}, result.filteredPath, result.word};
    // As the table of processes would hand it out, cut to its length.
    event.process.appendUtf16Lowered(imageOf(result.process));
    const auto &filters = group.filters->filters();
    for (std::size_t at = 0; at < filters.size(); ++at) {
        // Stanzas have names of their own, so that there are as many filters, in the same order.
        result.stanzas.push_back(
            answerOf(static_cast<const RegMonEventFilter &>(*filters[at]), group.configs[at], event));
    }
    result.inclusive = group.inclusive;
    result.passes = group.passes(event);
}

} // namespace

Str whyNotAll(const Regex &pattern, const Str &path)
{
    // From the answer that tells most to the one that tells least.
    Str why = departure(literalBeginning(pattern.pattern().view()).view(), path.view());
    if (why.empty()) {
        why = missingLiteral(pattern, path);
    }
    RegexMatch match;
    if (why.empty() && pattern.match(path, &match) && match.end() > match.start()) {
        why = Str::fromFormat("matches characters %u to %u and not the path as a whole, which has %u",
                              characters(path.view().substr(0, match.start())) + 1,
                              characters(path.view().substr(0, match.end())), characters(path.view()));
    }
    return why.empty() ? Str("the expression finds nothing") : why;
}

Str whyNotFound(const Regex &pattern, const Str &text)
{
    const Str missing = missingLiteral(pattern, text);
    return missing.empty() ? Str("the expression finds nothing") : missing;
}

std::uint32_t hiveOf(const Str &keyPath)
{
    const auto lies = [path = keyPath.lowered()](std::string_view root) {
        return path.startsWith(root) && (path.size() == root.size() || path[root.size()] == '\\');
    };
    return lies("\\registry\\machine") ? kMachineHives : lies("\\registry\\user") ? kUserHives : 0;
}

Explanation explain(const Stanzas &stanzas, const StanzaDefaults &defaults, const Operation &operation)
{
    HiveNames hiveNames;
    hiveNames.initHiveNameKeyMap();
    Explanation result;
    std::unique_ptr<MonitorFilterGroup> group;
    try {
        group = makeFilterGroup(stanzas, defaults, hiveNames);
        if (!group) {
            throw ExplainException("The monitor would not run: none of its stanzas is enabled");
        }
        result.asked = makeFilterBlock(*group, hiveNames, registryOperationMasks());
    } catch (const RegexException &fault) {
        refuse(stanzas, defaults, fault);
    }
    KernelPath key = kernelPath(operation.key, hiveNames);
    const std::vector<unsigned char> bytes = recordOf(operation.word, key.path);
    // The process is given as text, and no record names it by number.
    ProcessTexts noProcesses(systemDrives());
    RecordAtHand record(hiveNames, noProcesses);
    record.take(MonitorRecord(bytes.data()));

    result.word = operation.word;
    result.keyPath = std::move(key.path);
    result.keyRemark = std::move(key.remark);
    result.filteredPath = record.keyPath();
    result.isControlSetRenamed = record.keyPath() != record.foldedName();
    result.process = deviceForm(operation.process);
    ask(*group, result);
    const std::uint32_t operationMask = registryOperationMasks().at(operation.word);
    result.isReported =
        (result.asked.ops & operationMask) != 0 && (result.asked.hives & hiveOf(result.keyPath)) != 0;
    // By the path as the kernel spells it, while the filters may see another control set's name: this is how
    // an event comes to carry no stanza.
    if (const SystemMonitoringConfig *config = group->stanzaOf(record.foldedName())) {
        result.naming = {config->name, config->index, config->hive.pattern().size()};
    }
    return result;
}

} // namespace velmox
