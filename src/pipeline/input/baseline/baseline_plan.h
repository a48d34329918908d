#pragma once

#include "pipeline/input/baseline/baseline_checkpoint.h"
#include "pipeline/input/baseline/baseline_start_points.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// What a baseline has to walk, and which of the keys it meets it reports.
struct BaselinePlan
{
    std::vector<StartPath> startPaths;
    StrVector regexes;
};

/// Gathers the `baseline` stanzas that are due, and enters the patterns of new ones into checkpoint files. A
/// stanza is due when its pattern is not the one in its file, when no walk has been completed, or when its
/// interval has run out since the last run.
///
/// False, with the reason logged to `monitorLog`, when there is no group of registry filters or an exception
/// came. Main thread only.
bool processHivePaths(MonitorRules &rules, const BaselineCheckPoint &checkpoint, BaselinePlan &plan);

} // namespace velmox
