#include "pipeline/input/baseline/baseline_plan.h"

#include "pipeline/input/diagnostics/monitor_log.h"

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::processHivePaths";

// Whether a walk was completed, and the last run is less than the stanza's interval ago.
bool hasRunInInterval(const SystemMonitoringConfig &config, const BaselineCheckPoint &checkpoint)
{
    // Unsigned, as a damaged file may hold any number.
    const auto now = static_cast<unsigned long long>(secondsSinceEpoch());
    Str completed;
    if (!checkpoint.gotCheckpoint(kCompleted, completed) || !completed.toBool(false, true)) {
        return false;
    }
    Str lastRun;
    if (!checkpoint.gotCheckpoint(kLastTimeRun, lastRun)) {
        return false;
    }
    const auto elapsed =
        static_cast<long long>(now - static_cast<unsigned long long>(lastRun.toInt64(0, 10)));
    return elapsed < config.baselineInterval.toInt64(0, 10);
}

bool isDue(const SystemMonitoringConfig &config, const BaselineCheckPoint &checkpoint)
{
    const Str name = Str::concat("filter_", config.name);
    const Str &pattern = config.hive.pattern();
    Str stored;
    if (!checkpoint.gotCheckpoint(name, stored)) {
        if (!checkpoint.setCheckpoint(name, pattern)) {
            monitorLog.error("%s: Failed to set checkpoint for Registry Monitor filter '%s'", kFunction,
                             config.name.c_str());
        }
        return true;
    }
    // The file keeps the first pattern: a changed one is walked at every start until an operator removes the
    // file.
    return stored != pattern || !hasRunInInterval(config, checkpoint);
}

} // namespace

bool processHivePaths(MonitorRules &rules, const BaselineCheckPoint &checkpoint, BaselinePlan &plan)
{
    const MonitorFilterGroup *group = rules.group(kRegmonFilters);
    if (group == nullptr) {
        monitorLog.info("%s: %s has been turned off, or no configuration file was found", kFunction,
                        kRegmonFilters);
        return false;
    }
    try {
        std::vector<StartPath> paths;
        for (const SystemMonitoringConfig &config : group->configs) {
            if (!config.baseline || !isDue(config, checkpoint)) {
                continue;
            }
            // A pattern without a literal beginning starts no walk, but counts for what other walks meet.
            if (StartPath components = literalComponents(config.hive.pattern()); !components.empty()) {
                paths.push_back(std::move(components));
            }
            plan.regexes.push_back(Str::concat("(?i)", config.hive.pattern()));
        }
        plan.startPaths = withoutCovered(std::move(paths));
        return true;
    } catch (const std::exception &exception) {
        monitorLog.error("%s: Failed to process filter hive paths: '%s'", kFunction, exception.what());
        return false;
    }
}

} // namespace velmox
