#include "pipeline/input/rules/stanza_configuration.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/rules/hive_names.h"
#include "util/text/str_segment.h"

#include <new>

namespace velmox {

namespace {

constexpr std::string_view kPrefix = "winregmon:";
constexpr char kAnything[] = ".*";
constexpr char kDefaultTypes[] = "rename|set|delete|create";
constexpr char kDefaultInterval[] = "86400";

// Lets a plain path admit one further component: the values and sub keys right under it. CR and LF stand in
// the brackets as bytes.
constexpr std::string_view kPlainPathSuffix = "\\\\?([^\\\\\r\n]+){0,1}";
static_assert(kPlainPathSuffix.size() == 18);

Str shortName(const Str &stanzaName)
{
    // The prefix may end in the colon alone: "WinRegMon:software".
    for (const std::string_view separator : {"://", ":"}) {
        const std::size_t at = stanzaName.find(separator);
        if (at != Str::npos) {
            return stanzaName.substr(at + separator.size());
        }
    }
    return stanzaName;
}

/// An empty value counts as a missing one: as a pattern it would match everything.
Str patternOr(const PropertiesMap &stanza, const char *key, const char *dflt)
{
    Str value = stanza.get(key);
    if (value.empty()) {
        monitorLog.info("%s - missing value Defaulting to '%s'", key, dflt);
        value = dflt;
    }
    return value;
}

/// An empty value stands, unlike that of a pattern.
Str valueOr(const PropertiesMap &stanza, const char *key, const Str &dflt)
{
    Str value;
    return stanza.tryGet(key, value) ? value : dflt;
}

/// The root first, as it is what the configured text begins with. Whether it is a plain path is asked of the
/// configured text as well.
Str finalHivePattern(const Str &hive, const HiveNames &hiveNames)
{
    WideStr wide = WideStr::fromUtf8(hive);
    hiveNames.translateHiveRoot(wide);
    Str pattern = Str::fromUtf16(wide);
    if (!hasPatternCharacters(hive)) {
        pattern.append(kPlainPathSuffix);
    }
    return pattern;
}

void addStanza(const Str &stanzaName, const PropertiesMap &stanza, const StanzaDefaults &defaults,
               HiveNames &hiveNames, DriveMap &drives, MonitorFilterGroup &group)
{
    const Str proc = patternOr(stanza, "proc", kAnything);
    const Str hive = patternOr(stanza, "hive", kAnything);
    const Str type = patternOr(stanza, "type", kDefaultTypes);
    hiveNames.detectCurrentControlSet(hive);
    const Str finalHive = finalHivePattern(hive, hiveNames);
    group.filters->addFilter(
        new RegMonEventFilter(stanzaName, drives.translateProcessDrive(proc), finalHive, type), true);

    SystemMonitoringConfig config;
    // The same patterns once more: the filter judges events, these name the stanza of one that passed.
    config.proc.compile(proc.lowered(), true, 0);
    config.hive.compile(finalHive.lowered(), true, 0);
    config.index = valueOr(stanza, "index", defaults.index);
    config.baselineInterval = valueOr(stanza, "baseline_interval", kDefaultInterval);
    StrSegment(type).splitInto(config.types, "|");
    config.name = shortName(stanzaName);
    config.baseline = stanza.getBool("baseline", false);
    group.configs.push_back(std::move(config));
}

bool isWanted(const Str &stanzaName, const PropertiesMap &stanza)
{
    // What "default" says has come down to the other stanzas already.
    if (stanzaName == "default" || stanza.isDisabled()) {
        return false;
    }
    if (!stanzaName.lowered().startsWith(kPrefix)) {
        monitorLog.error(
            "Found a stanza named '%s' without the WinRegMon prefix, this will not be processed.",
            stanzaName.c_str());
        return false;
    }
    return true;
}

std::unique_ptr<MonitorFilterGroup> emptyGroup(bool inclusive)
{
    std::unique_ptr<MonitorFilterGroup> group(new (std::nothrow) MonitorFilterGroup);
    if (group) {
        group->inclusive = inclusive;
        group->filters.reset(new (std::nothrow) SysMonEventFilterList);
    }
    if (!group || !group->filters) {
        monitorLog.error("%s: Failed to create SystemMonitoringConfig object",
                         "WinRegistryMonitor::configure");
        return nullptr;
    }
    return group;
}

} // namespace

std::unique_ptr<MonitorFilterGroup> makeFilterGroup(const Stanzas &stanzas, const StanzaDefaults &defaults,
                                                    HiveNames &hiveNames, DriveMap &drives)
{
    std::unique_ptr<MonitorFilterGroup> group;
    for (const auto &[name, stanza] : stanzas) {
        if (!isWanted(name, stanza)) {
            continue;
        }
        if (!group && !(group = emptyGroup(defaults.inclusive))) {
            return nullptr;
        }
        addStanza(name, stanza, defaults, hiveNames, drives, *group);
    }
    return group;
}

} // namespace velmox
