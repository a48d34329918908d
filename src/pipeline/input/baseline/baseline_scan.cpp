#include "pipeline/input/baseline/baseline_scan.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/registry/win_registry.h"
#include "util/files/file_star.h"
#include "util/system/owned_handle.h"
#include "util/time/timeval.h"

#include <memory>
#include <new>

namespace velmox {

namespace {

// The names in messages, see diagnostics.h.
constexpr char kProcessHivePaths[] = "WinRegistryMonitor::processHivePaths";
constexpr char kFunction[] = "WinRegistryMonitor::establishBaseline";

// Values of the baseline are rendered as those of RegNtQueryKey are, by their own data types.
constexpr std::uint32_t kBaselineOperation = 7;

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
    // One file for each stanza; whether and when a walk was done is kept for all together.
    const Str name = Str::concat("filter_", config.name);
    const Str &pattern = config.hive.pattern();
    Str stored;
    if (!checkpoint.gotCheckpoint(name, stored)) {
        if (!checkpoint.setCheckpoint(name, pattern)) {
            monitorLog.error("%s: Failed to set checkpoint for Registry Monitor filter '%s'",
                             kProcessHivePaths, config.name.c_str());
        }
        return true;
    }
    // The file keeps the first pattern: a changed one is walked at every start until an operator removes the
    // file.
    return stored != pattern || !hasRunInInterval(config, checkpoint);
}

void logRegexes(const StrVector &regexes)
{
    if (!monitorLog.debugEnabled()) {
        return;
    }
    monitorLog.debug("%s: listing regexes which will filter the keys for baselining", kFunction);
    for (const Str &regex : regexes) {
        monitorLog.debug("%s: including regex: '%s'", kFunction, regex.c_str());
    }
}

/// When the key was last written, which is the nearest that is known of its values; now, where the registry
/// tells no time.
Timeval eventTime(const FILETIME &lastWriteTime)
{
    const Timeval time = timevalOf(lastWriteTime);
    return time.isMin() ? Timeval::now() : time;
}

} // namespace

bool BaselineCheckPoint::gotCheckpoint(const Str &name, Str &value) const
{
    constexpr char kFunction[] = "BaselineCheckPoint::gotCheckpoint";
    const Pathname path = pathOf(name);
    // Made ahead of the calls that can fail, so that nothing stands between a failure and its message.
    const Str shown = path.toStr();
    FileStar file = openFile(path, "r");
    if (!file.isOpen()) {
        monitorLog.error("%s: Unable to open checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    if (!file.readLine(value) || value.empty()) {
        monitorLog.debug("%s: Unable to read checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    return true;
}

bool BaselineCheckPoint::setCheckpoint(const Str &name, const Str &value) const
{
    constexpr char kFunction[] = "BaselineCheckPoint::setCheckpoint";
    const Pathname path = pathOf(name);
    // Made ahead of the calls that can fail, so that nothing stands between a failure and its message.
    const Str shown = path.toStr();
    const FileHandle file(CreateFileW(asWide(path.c_str()), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid()) {
        monitorLog.error("%s: Unable to open checkpoint file='%s' for write: '%m'", kFunction, shown.c_str());
        return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.get(), value.data(), static_cast<DWORD>(value.size()), &written, nullptr)) {
        monitorLog.error("%s: Unable to write to checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    return true;
}

bool BaselineCheckPoint::setLastTimeRun() const
{
    return setCheckpoint(kLastTimeRun, Str::fromFormat("%lld", secondsSinceEpoch()));
}

long long secondsSinceEpoch()
{
    return Timeval::now().toUnixSeconds();
}

bool processHivePaths(MonitorRules &rules, const BaselineCheckPoint &checkpoint, BaselinePlan &plan)
{
    const MonitorFilterGroup *group = rules.group(kRegmonFilters);
    if (group == nullptr) {
        monitorLog.info("%s: %s has been turned off, or no configuration file was found", kProcessHivePaths,
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
            // The patterns are lower case, the keys of a walk are not.
            plan.regexes.push_back(Str::concat("(?i)", config.hive.pattern()));
        }
        plan.startPaths = withoutCovered(std::move(paths));
        return true;
    } catch (const std::exception &exception) {
        monitorLog.error("%s: Failed to process filter hive paths: '%s'", kProcessHivePaths,
                         exception.what());
        return false;
    }
}

bool BaselineScan::establishBaseline()
{
    BaselinePlan plan;
    if (!processHivePaths(rules_, checkpoint_, plan)) {
        monitorLog.error("%s: Failed to process filter hive paths", kFunction);
        return false;
    }
    logRegexes(plan.regexes);
    // Nothing is due, or the patterns have no beginning to start from: neither is a failure.
    if (plan.startPaths.empty()) {
        return true;
    }
    try {
        const std::unique_ptr<RegexFilterList> filters(new (std::nothrow) RegexFilterList(plan.regexes));
        if (!filters) {
            monitorLog.error("%s: Failed to create RegexFilterList object", kFunction);
            return false;
        }
        for (const StartPath &path : plan.startPaths) {
            walkFrom(path, *filters);
        }
        return true;
    } catch (const std::exception &exception) {
        monitorLog.error("%s: Failed to establish baseline: '%s'", kFunction, exception.what());
        return false;
    }
}

void BaselineScan::walkFrom(const StartPath &path, RegexFilterList &filters)
{
    const ResolvedStart start = resolveRoot(path, hiveNames_);
    if (start.hive != nullptr) {
        context_.hive = *start.hive;
        context_.hive.basePath = WideStr::fromUtf8(start.root);
        context_.keyPrefix = Str::concat(start.root, "\\");
    }
    // Nothing to walk from: no root in this path, and none in those before it.
    if (context_.hive.basePath.empty()) {
        return;
    }
    context_.scan = this;
    context_.filters = &filters;
    const auto rootKey = reinterpret_cast<HKEY>(context_.hive.rootKey);
    const WideStr subKey = WideStr::fromUtf8(start.rest);
    const std::uint32_t result =
        WinRegistry().walk(rootKey, subKey.c_str(), nullptr, onValue, &context_, stop_.word());
    // A walk that the stop flag ended counts as done, too: it is not taken up again at the next start.
    if (result == ERROR_SUCCESS) {
        markDone(start.root, start.rest);
        return;
    }
    // The message takes its text from the last error, and the walk gave a code.
    SetLastError(result);
    monitorLog.error("%s: Failed to enumerate registry for baselining: hkey='%s' start_point='%s': '%m'",
                     kFunction, start.root.c_str(), start.rest.c_str());
}

/// A failure costs another walk at the next start, and is told for that.
void BaselineScan::markDone(const Str &root, const Str &rest) const
{
    if (!checkpoint_.setCheckpoint(kCompleted, "1")) {
        monitorLog.error("%s: Failed to set checkpoint 'completed' for baseline key path='%s%s'", kFunction,
                         root.c_str(), rest.c_str());
    }
    if (!checkpoint_.setLastTimeRun()) {
        monitorLog.error("%s: Failed to set checkpoint 'last_time_completed' for baseline key path='%s%s'",
                         kFunction, root.c_str(), rest.c_str());
    }
}

void BaselineScan::onValue(const char16_t *path, const char16_t *, DWORD, DWORD valueType, const BYTE *data,
                           DWORD dataLength, const FILETIME &lastWriteTime, void *context)
{
    static_cast<BaselineContext *>(context)->scan->processBaselineEvt(path, valueType, data, dataLength,
                                                                      lastWriteTime);
}

void BaselineScan::processBaselineEvt(const char16_t *path, DWORD valueType, const BYTE *data,
                                      DWORD dataLength, const FILETIME &lastWriteTime)
{
    Str &keyPath = context_.keyPath;
    keyPath = context_.keyPrefix;
    keyPath.appendUtf16(path);
    // Before the value is rendered, as most values of a walk are dropped here.
    if (!context_.filters->matches(keyPath)) {
        monitorLog.debug("%s: filters did not match the considered key '%s'.",
                         "WinRegistryMonitor::processBaselineEvt", keyPath.c_str());
        return;
    }
    renderValueData(kBaselineOperation, valueType, data, dataLength, context_.dataText);
    // The stanza is found anew: the filter that let the value pass may be another one's.
    context_.stanza.clear();
    const Str index = rules_.getIndexAndStanzaForRegmon(keyPath, context_.stanza);
    Str &body = context_.body;
    body.assign("registry_type=\"baseline\"\nkey_path=\"");
    // The data end at their first NUL, as everywhere.
    body << keyPath << "\"\ndata_type=\"" << dataTypeName(kBaselineOperation, valueType) << "\"\ndata=\""
         << context_.dataText.c_str() << "\"\n";
    emitter_.emitEvent(body, index, context_.stanza, eventTime(lastWriteTime));
}

} // namespace velmox
