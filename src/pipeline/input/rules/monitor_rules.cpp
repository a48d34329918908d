#include "pipeline/input/rules/monitor_rules.h"

#include "pipeline/input/diagnostics/diagnostics.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace velmox {

const SystemMonitoringConfig *MonitorFilterGroup::stanzaOf(const Str &keyPath)
{
    if (ranked_.size() != configs.size()) {
        rank();
    }
    hives_.find(keyPath, possible_);
    for (std::size_t rank = possible_.next(0); rank != BitSet::kNone; rank = possible_.next(rank + 1)) {
        const SystemMonitoringConfig &config = configs[ranked_[rank]];
        // Searched, where the filter matches the whole path: of an event that passed, this only tells the
        // name.
        if (config.hive.finds(keyPath)) {
            return &config;
        }
    }
    return nullptr;
}

/// The longest text first, which is most often the narrowest pattern. The index counts by rank, so that the
/// first number it gives is that of the longest.
void MonitorFilterGroup::rank()
{
    ranked_.resize(configs.size());
    std::iota(ranked_.begin(), ranked_.end(), std::size_t{0});
    std::ranges::stable_sort(ranked_, std::ranges::greater(),
                             [this](std::size_t at) { return configs[at].hive.pattern().size(); });
    hives_ = LiteralIndex();
    for (const std::size_t at : ranked_) {
        hives_.add(requiredLiterals(configs[at].hive.pattern()));
    }
    hives_.build();
}

MonitorFilterGroup *MonitorRules::group(const Str &name)
{
    return filterGroups_[name].get();
}

MonitorFilterGroup *MonitorRules::registryGroup()
{
    if (registryGroup_ == nullptr) {
        // Kept, as each record asks for it, and a look-up by name builds a text first.
        registryGroup_ = group(kRegmonFilters);
    }
    return registryGroup_;
}

bool MonitorRules::insert(const Str &name, std::unique_ptr<MonitorFilterGroup> group)
{
    return filterGroups_.emplace(name, std::move(group)).second;
}

Str MonitorRules::getIndexAndStanzaForRegmon(const Str &keyPath, Str &stanza)
{
    MonitorFilterGroup *found = registryGroup();
    if (found == nullptr) {
        monitorLog.error("%s: %s has been turned off, or no configuration file was found",
                         "WinRegistryMonitor::getIndexAndStanzaForRegmon", kRegmonFilters);
        return {};
    }
    foldedPath_.clear();
    keyPath.toLower(foldedPath_);
    const SystemMonitoringConfig *config = found->stanzaOf(foldedPath_);
    if (config == nullptr) {
        return {};
    }
    stanza = config->name;
    return config->index;
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
        // On to the last: of several that match it is the last that counts here.
        if (config.proc.finds(path)) {
            index = config.index;
            stanza = config.name;
        }
    }
    return index;
}

} // namespace velmox
