#include "pipeline/input/rules/monitor_rules.h"

#include "pipeline/input/diagnostics/monitor_log.h"

namespace velmox {

MonitorFilterGroup *MonitorRules::group(const Str &name)
{
    return filterGroups_[name].get();
}

bool MonitorRules::insert(const Str &name, std::unique_ptr<MonitorFilterGroup> group)
{
    return filterGroups_.emplace(name, std::move(group)).second;
}

Str MonitorRules::getIndexAndStanzaForRegmon(const Str &keyPath, Str &stanza)
{
    const MonitorFilterGroup *found = group(kRegmonFilters);
    if (found == nullptr) {
        monitorLog.error("%s: %s has been turned off, or no configuration file was found",
                         "WinRegistryMonitor::getIndexAndStanzaForRegmon", kRegmonFilters);
        return {};
    }
    const Str path = keyPath.lowered();
    const SystemMonitoringConfig *best = nullptr;
    for (const SystemMonitoringConfig &config : found->configs) {
        const bool longer = best == nullptr || config.hive.pattern().size() > best->hive.pattern().size();
        if (longer && path.contains(config.hivePrefix) && config.hive.match(path)) {
            best = &config;
        }
    }
    if (best == nullptr) {
        return {};
    }
    stanza = best->name;
    return best->index;
}

Str MonitorRules::getIndexAndStanzaForProcmon(const Str &processPath, Str &stanza)
{
    const MonitorFilterGroup *found = group(kProcmonFilters);
    if (found == nullptr) {
        monitorLog.error("%s: %s has been turned off, or no configuration file was found.",
                         "WinRegistryMonitor::getIndexAndStanzaForProcmon", kProcmonFilters);
        return {};
    }
    const Str path = processPath.lowered();
    Str index;
    for (const SystemMonitoringConfig &config : found->configs) {
        if (config.proc.match(path)) {
            index = config.index;
            stanza = config.name;
        }
    }
    return index;
}

} // namespace velmox
