#include "pipeline/input/rules/filter_block.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/diagnostics/trace.h"
#include "util/match/string_filters.h"

namespace velmox {

namespace {

// The name in messages and traces, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::setRegEvtTypesToMonitor";

// The hive class of the first root whose name stands anywhere in the pattern; 0 for none. Anywhere, because
// a pattern may have something else in front, such as a bracket.
std::uint32_t hiveMask(const Regex &hive, const HiveNames &hiveNames)
{
    Str text = hive.pattern();
    text.replaceAll("\\\\", "\\");
    for (const auto &[root, info] : hiveNames.hiveKeyMap()) {
        if (text.contains(Str::fromUtf16(root).lowered())) {
            return info.hiveClass;
        }
    }
    return 0;
}

void addHive(const SystemMonitoringConfig &config, const HiveNames &hiveNames, MonitorFilterConfig &block)
{
    const std::uint32_t mask = hiveMask(config.hive, hiveNames);
    if (mask != 0) {
        block.hives |= mask;
        return;
    }
    trace::monitor(trace::Message::NoHiveRoot, kFunction);
    monitorLog.error("%s: Unable to match a hive root path to any of the 'hive' options provided in the "
                     "configuration file",
                     kFunction);
    // A pattern that names no root may match in any.
    block.hives = kUserHives | kMachineHives;
}

// Lists by their patterns. Most stanzas have the same, and to compile them anew for each of 200 made a start
// 60 ms longer.
using TypeLists = std::map<StrVector, RegexFilterList>;

void addOperations(RegexFilterList &types, const std::map<Str, std::uint32_t> &eventTypeMasks,
                   MonitorFilterConfig &block)
{
    for (const auto &[word, mask] : eventTypeMasks) {
        if (types.matches(word)) {
            block.ops |= mask;
            monitorLog.info("%s: Driver is configured to report '%s' type events", kFunction, word.c_str());
            trace::monitor(trace::Message::OperationAsked, kFunction, word);
        }
    }
}

} // namespace

MonitorFilterConfig makeFilterBlock(const MonitorFilterGroup &group, const HiveNames &hiveNames,
                                    const std::map<Str, std::uint32_t> &eventTypeMasks)
{
    MonitorFilterConfig block = {kAllEvents, kStatusMask, 0, 0};
    TypeLists types;
    for (const SystemMonitoringConfig &config : group.configs) {
        addHive(config, hiveNames, block);
        addOperations(types.try_emplace(config.types, config.types).first->second, eventTypeMasks, block);
    }
    return block;
}

} // namespace velmox
