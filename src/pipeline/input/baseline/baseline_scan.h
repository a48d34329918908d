#pragma once

#include "pipeline/input/baseline/baseline_checkpoint.h"
#include "pipeline/input/baseline/baseline_start_points.h"
#include "pipeline/input/driver/stop_flag.h"
#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"
#include "util/match/string_filters.h"

namespace velmox {

/// Reports what stands in the registry before the monitoring of changes begins: a walk below the fixed
/// beginning of each `baseline` stanza's hive pattern, with an event for each value that some pattern
/// matches.
///
/// Checkpoint files keep a restart from repeating it before the stanza's interval has run out. Runs on the
/// main thread, before the worker starts; the objects passed in must outlive this one.
class BaselineScan
{
public:
    BaselineScan(MonitorRules &rules, const HiveNames &hiveNames, const BaselineCheckPoint &checkpoint,
                 EventEmitter &emitter, const StopFlag &stop)
        : rules_(rules), hiveNames_(hiveNames), checkpoint_(checkpoint), emitter_(emitter), stop_(stop)
    {
    }

    /// True also when some start point could not be walked; the reason is logged.
    bool establishBaseline();

private:
    /// What the value callback gets of the walk at hand.
    struct BaselineContext
    {
        BaselineScan *scan = nullptr;
        RegexFilterList *filters = nullptr;
        HiveKeyInfo hive;
    };

    void walkFrom(const StartPath &path, RegexFilterList &filters);
    Str resolveRoot(const StartPath &path, Str &root);
    void markDone(const Str &root, const Str &rest) const;

    static void onValue(const char16_t *path, const char16_t *valueName, DWORD nameLength, DWORD valueType,
                        const BYTE *data, DWORD dataLength, const FILETIME &lastWriteTime, void *context);
    void processBaselineEvt(const char16_t *path, DWORD valueType, const BYTE *data, DWORD dataLength,
                            const FILETIME &lastWriteTime);

    MonitorRules &rules_;
    const HiveNames &hiveNames_;
    const BaselineCheckPoint &checkpoint_;
    EventEmitter &emitter_;
    const StopFlag &stop_;
    // Kept from start point to start point: one that finds no root of its own runs under that of the one
    // before.
    BaselineContext context_;
};

} // namespace velmox
