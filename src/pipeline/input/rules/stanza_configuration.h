#pragma once

#include "conf/tree/properties_map.h"
#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// What the command line says for all stanzas.
struct StanzaDefaults
{
    /// For the stanzas that name none.
    Str index;
    /// The sense of their filters, as in `MonitorFilterGroup`.
    bool inclusive = true;
};

/// Turns the enabled `WinRegMon:` stanzas, in the order of the map, into one filter group; null when there is
/// none.
///
/// A stanza without the prefix is logged and skipped. Throws RegexException on a pattern that does not
/// compile. The control set of `hiveNames` is detected on the way; drives in patterns are those of `drives`.
std::unique_ptr<MonitorFilterGroup> makeFilterGroup(const Stanzas &stanzas, const StanzaDefaults &defaults,
                                                    HiveNames &hiveNames, DriveMap &drives = systemDrives());

} // namespace velmox
