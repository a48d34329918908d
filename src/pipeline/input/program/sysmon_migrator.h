#pragma once

#include "conf/pages/property_pages.h"

#include <map>

namespace velmox {

/// What the old settings say of one filter file. Each text is empty unless its key was present.
struct MigrationRecord
{
    Str inclusive;
    Str disabled;
    Str eventTypes;
    Str index;
};

/// Carries what still matters of `sysmon.conf`, where an older installation kept this monitor's settings,
/// into the files of today, and marks `sysmon.conf` as done. Each setting comes to rest in the app that
/// provided it.
///
/// Reads and writes only through the configuration store, whose exceptions pass. What was written before one
/// stays; the next start begins anew and finds less to do. One thread.
class SysmonMigrator
{
public:
    /// True when a migration was carried out, false when there was none to do.
    bool migrate();

    /// For filter files besides the two: carries a state and an index into every stanza of `sourceName`, and
    /// saves them as stanzas of the registry's or of the processes' filters. Not part of `migrate`.
    void migrateNonRegmonProcmonFilters(const Str &sourceName, const Str &disabled, const Str &index,
                                        bool toRegmon);

private:
    /// Reads `sysmon.conf`; `migrated` tells that nothing is to be done.
    void read(bool &migrated);
    void readRecord(const Str &stanzaName, const PropertiesMap &stanza);
    /// Carries the sense of the filters into the stanza by which the monitor is run as a script.
    void writeToInputs();
    /// Carries state and index into the stanzas of one of the two filter files.
    void writeToRegmonAndProcmon(const Str &fileName);
    void markAsMigrated();
    void saveToConfFile(const Str &fileName, const Str &stanzaName, const PropertiesMap &stanza);

    /// By the name of the filter file.
    std::map<Str, MigrationRecord> filters_;
};

} // namespace velmox
