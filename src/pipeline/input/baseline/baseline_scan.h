#pragma once

#include "pipeline/input/baseline/baseline_start_points.h"
#include "pipeline/input/driver/shared_state.h"
#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"
#include "util/match/string_filters.h"
#include "util/system/windows_api.h"
#include "util/text/pathname.h"

// The room `baseline`: what stands in the registry before the driver reports any change, and the small files
// that remember when it was last told.
namespace velmox {

/// The small files that remember what a baseline did, one value each, in one directory that the server
/// provides. People look into them, and remove one to have a baseline again.
///
/// A value is the file's plain bytes, without a line end. Failures are logged to `monitorLog`; a missing
/// file on a first run is logged too, and is no fault.
class BaselineCheckPoint
{
public:
    /// `directory` ends in a backslash.
    void setDirectory(Pathname directory) { directory_ = std::move(directory); }

    /// The file's first line; false when there is no such file or the line is empty.
    bool gotCheckpoint(const Str &name, Str &value) const;
    bool setCheckpoint(const Str &name, const Str &value) const;
    /// Writes the present time to `kLastTimeRun`.
    bool setLastTimeRun() const;

private:
    Pathname pathOf(const Str &name) const { return directory_.concat(name); }

    Pathname directory_;
};

/// Seconds since 1970; 0 before that.
long long secondsSinceEpoch();

/// The file that holds the time of the last run, in seconds since 1970.
inline constexpr char kLastTimeRun[] = "last_time_run";
/// The file that says that a walk was completed; spelt so on every disk that has one.
inline constexpr char kCompleted[] = "comleted";

/// What a baseline has to walk, and which of the keys it meets it reports: all patterns count for all walks,
/// as the start paths of several stanzas may fall together.
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
        /// The root's path and a separator, with which the path of each value begins.
        Str keyPrefix;
        /// Of the value at hand. They keep their memory: allocating the path anew took as long as to match
        /// it, the rest as long as to write it.
        Str keyPath;
        Str dataText;
        Str stanza;
        Str body;
    };

    /// Reports what stands below a start path, and notes that it was done.
    void walkFrom(const StartPath &path, RegexFilterList &filters);
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
