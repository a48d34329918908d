#include "pipeline/input/program/sysmon_migrator.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/rules/monitor_rules.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr char kSysmon[] = "sysmon";
constexpr char kInputs[] = "inputs";
constexpr char kDefault[] = "default";
constexpr char kSystem[] = "system";

constexpr char kDisabledKey[] = "disabled";
constexpr char kInclusiveKey[] = "inclusive";
constexpr char kIndexKey[] = "index";
constexpr char kMigratedKey[] = "migrated";

constexpr char kRead[] = "SysmonMigrator::read";
constexpr char kWriteToInputs[] = "SysmonMigrator::writeToInputs";
constexpr char kWriteToFilters[] = "SysmonMigrator::writeToRegmonAndProcmon";
constexpr char kMigrateOthers[] = "SysmonMigrator::migrateNonRegmonProcmonFilters";

/// A key of an old stanza, where it goes, and what the log says when it is absent.
struct OldKey
{
    const char *key;
    Str MigrationRecord::*field;
    const char *ifAbsent;
};

constexpr OldKey kOldKeys[] = {
    {kDisabledKey, &MigrationRecord::disabled,
     "%s -'sysmon.conf' - disabled not present - assuming disabled = 0."},
    {kInclusiveKey, &MigrationRecord::inclusive,
     "%s -'sysmon.conf' - inclusive not present - assuming inclusive = 1."},
    {kIndexKey, &MigrationRecord::index, "%s - 'sysmon.conf' - index not present - assuming default index."},
    {"event_types", &MigrationRecord::eventTypes, "%s - 'sysmon.conf' - event_type not present."},
};

/// All stanzas, the disabled ones too: those are what a migration must not lose.
Stanzas readAll(PropertyPages &pages)
{
    RegexStringFilter everything("filter", ".*");
    Stanzas stanzas;
    pages.enumerateStanzas(everything, stanzas, DisabledMode::All);
    return stanzas;
}

/// Disables a stanza that is not disabled yet; false when it is.
bool disable(PropertiesMap &stanza)
{
    const Str value = stanza.get(kDisabledKey);
    if (value.toBool(false, true)) {
        return false;
    }
    stanza.set(kDisabledKey, "1");
    return true;
}

/// Gives a stanza without an index of its own the old one; false when it has one.
bool takeIndex(PropertiesMap &stanza, const Str &index)
{
    const Str value = stanza.get(kIndexKey);
    if (!value.empty() && value.compareCaseless(kDefault) != 0) {
        return false;
    }
    stanza.set(kIndexKey, index);
    return true;
}

} // namespace

bool SysmonMigrator::migrate()
{
    bool migrated = false;
    read(migrated);
    if (migrated) {
        return false;
    }
    // In this order: the files of filters take their records out of the map, and what then is left is
    // neither's.
    writeToInputs();
    writeToRegmonAndProcmon(kProcmonFilters);
    writeToRegmonAndProcmon(kRegmonFilters);
    filters_.erase(kDefault);
    if (!filters_.empty()) {
        monitorLog.error("%s - Found filters in sysmon.conf, which are not regmon or procmon.",
                         "SysmonMigrator::migrate");
    }
    markAsMigrated();
    return true;
}

void SysmonMigrator::read(bool &migrated)
{
    migrated = false;
    const Stanzas stanzas = readAll(*PropertyPages::get(kSysmon));
    if (stanzas.empty()) {
        monitorLog.info("%s - 'sysmon.conf' was not found, no migration is required.", kRead);
        migrated = true;
        return;
    }
    for (const auto &[name, stanza] : stanzas) {
        if (!name.equals(kDefault)) {
            readRecord(name, stanza);
        } else if (stanza.get(kMigratedKey).equals("1")) {
            monitorLog.info("%s -'sysmon.conf' - 'migrated' found!!! - no migration will be done.", kRead);
            migrated = true;
            return;
        } else {
            monitorLog.info("%s - 'sysmon.conf' - 'migrated' not present - assuming FTR and migrating.",
                            kRead);
        }
    }
}

void SysmonMigrator::readRecord(const Str &stanzaName, const PropertiesMap &stanza)
{
    MigrationRecord record;
    for (const OldKey &old : kOldKeys) {
        if (!stanza.tryGet(old.key, record.*old.field)) {
            monitorLog.log(LogLevel::Info, old.ifAbsent, kRead);
        }
    }
    if (record.index.compareCaseless(kDefault) == 0) {
        record.index.clear();
    }
    // Read for the record alone: no file of today has a place for it.
    record.eventTypes.replaceAll(".*", "");
    // A stanza that names no file keeps its own name as the key, although the message assumes one: what it
    // holds is then reported as belonging to neither filter file.
    Str key = stanzaName;
    if (!stanza.tryGet("filter_file_name", key)) {
        monitorLog.info("%s - 'sysmon.conf' - filter_file_name missing, assuming regmon-filters.", kRead);
    }
    // Of two stanzas that name one file the later in the order of names counts.
    filters_[key] = record;
}

void SysmonMigrator::writeToInputs()
{
    const auto record = filters_.find(kRegmonFilters);
    if (record == filters_.end()) {
        monitorLog.info("No default settings for sysmon found.");
        return;
    }
    Stanzas stanzas;
    PropertyPages::get(kInputs)->enumerateStanzasWithPrefix("script://", stanzas, DisabledMode::OnlyEnabled);
    // Where the monitor runs as a plain script, its options stand in that script's stanza, under any path.
    const auto found = std::find_if(stanzas.begin(), stanzas.end(), [](const auto &stanza) {
        return stanza.first.view().find("velmox-regmon") != std::string_view::npos;
    });
    if (found == stanzas.end()) {
        monitorLog.info("%s - No settings were found for velmox-regmon.", kWriteToInputs);
        return;
    }
    // Inclusive is what the monitor is without the key, so only its opposite is carried over.
    if (record->second.inclusive.equals("0")) {
        found->second.set(kInclusiveKey, record->second.inclusive);
        monitorLog.info("%s - The settings for 'inclusive' have been added to inputs.conf.", kWriteToInputs);
        saveToConfFile(kInputs, found->first, found->second);
    }
}

void SysmonMigrator::writeToRegmonAndProcmon(const Str &fileName)
{
    MigrationRecord record;
    // What no stanza says of this file, the one for all files does.
    if (const auto own = filters_.find(fileName); own != filters_.end()) {
        record = own->second;
        filters_.erase(own);
    } else if (const auto general = filters_.find(kDefault); general != filters_.end()) {
        record = general->second;
    }
    PropertyPages *const pages = PropertyPages::get(fileName);
    if (pages == nullptr) {
        return;
    }
    for (auto &[name, stanza] : readAll(*pages)) {
        bool dirty = false;
        // The state goes to each stanza, the index to the one from which all inherit.
        if (name.compareCaseless(kDefault) != 0) {
            if (record.disabled.equals("1") && disable(stanza)) {
                dirty = true;
                monitorLog.info("%s - 'sysmon.conf' - Found some enabled stanzas for %s.", kWriteToFilters,
                                fileName.c_str());
            }
        } else if (!record.index.empty() && takeIndex(stanza, record.index)) {
            dirty = true;
            monitorLog.info("%s - 'sysmon.conf' - index not present - assuming no index.", kWriteToFilters);
        }
        if (dirty) {
            saveToConfFile(fileName, name, stanza);
        }
    }
}

void SysmonMigrator::saveToConfFile(const Str &fileName, const Str &stanzaName, const PropertiesMap &stanza)
{
    // A stanza goes back to the app that it came from, the system's when it came from none.
    ConfContext context;
    context.app = stanza.appName();
    if (context.app.empty()) {
        context.app = kSystem;
    }
    // The store writes the difference alone: defaults that were read along are not copied into a local file.
    PropertyPages::get(fileName, context)->write(context.app, stanzaName, stanza, false);
    monitorLog.info("%s - Saved the settings in file - %s, for [%s] during regmon migration.",
                    "SysmonMigrator::saveToConfFile", fileName.c_str(), stanzaName.c_str());
}

void SysmonMigrator::markAsMigrated()
{
    Stanzas stanzas = readAll(*PropertyPages::get(kSysmon));
    const auto found = stanzas.find(kDefault);
    // Without the stanza there is no mark, and the next start migrates again. That is harmless, as each step
    // only writes what is still different.
    if (found == stanzas.end()) {
        return;
    }
    found->second.set(kMigratedKey, "1");
    saveToConfFile(kSysmon, kDefault, found->second);
    monitorLog.info("%s - The contents of sysmon have been successfully migrated!, Adding 'migrated=1' to "
                    "sysmon.conf.",
                    "SysmonMigrator::markAsMigrated");
}

void SysmonMigrator::migrateNonRegmonProcmonFilters(const Str &sourceName, const Str &disabled,
                                                    const Str &index, bool toRegmon)
{
    for (auto &[name, stanza] : readAll(*PropertyPages::get(sourceName))) {
        if (disabled.equals("1")) {
            stanza.set(kDisabledKey, "1");
        }
        if (!index.empty() && takeIndex(stanza, index)) {
            monitorLog.info("%s - 'sysmon.conf' - migrating the index - '%s'.", kMigrateOthers,
                            index.c_str());
        }
        saveToConfFile(toRegmon ? kRegmonFilters : kProcmonFilters, name, stanza);
    }
}

} // namespace velmox
