#include "pipeline/input/explain/explanation.h"

#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/events/record_at_hand.h"
#include "pipeline/input/explain/kernel_path.h"
#include "pipeline/input/explain/mismatch.h"
#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::size_t kDriveLength = 2;

// Where a record has what the rules look at.
constexpr std::uint32_t kClassOffset = 0;
constexpr std::uint32_t kOperationOffset = 8;
constexpr std::uint32_t kNameBytesOffset = 36;

/// Names the stanza by which a configuration fails. The rules do not: a stanza is tried by itself here.
[[noreturn]] void refuse(const Stanzas &stanzas, const StanzaDefaults &defaults, const RegexException &fault)
{
    Str text = fault.message();
    for (const auto &[name, stanza] : stanzas) {
        HiveNames names;
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
    device.replaceAll("\\\\", "\\");
    return Str::concat(device, process.substr(kDriveLength));
}

/// What the monitor's table of processes holds of a path.
std::u16string imageOf(const Str &process)
{
    const WideStr wide = WideStr::fromUtf8(process);
    return std::u16string(wide.data(), std::min<std::size_t>(wide.size(), kImageUnits - 1));
}

/// A record of the driver's about the operation, with no more in it than the rules look at.
std::vector<unsigned char> recordOf(const Str &word, const Str &keyPath)
{
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
            throw ExplainException("The monitor would not run: no stanza of its is enabled");
        }
        result.asked = makeFilterBlock(*group, hiveNames, registryOperationMasks());
    } catch (const RegexException &fault) {
        refuse(stanzas, defaults, fault);
    }
    KernelPath key = kernelPath(operation.key, hiveNames);
    const std::vector<unsigned char> bytes = recordOf(operation.word, key.path);
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
    if (const SystemMonitoringConfig *config = group->stanzaOf(record.foldedName())) {
        result.naming = {config->name, config->index, config->hive.pattern().size()};
    }
    return result;
}

} // namespace velmox
