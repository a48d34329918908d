#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// What the driver has to report for the stanzas of a group: all record classes, the operations that some
/// stanza's types match, and the hives that the patterns begin in. What no stanza can take then never leaves
/// the kernel; it is too much rather than too little, and the filters decide.
///
/// Logs what it asks for. Throws RegexException when a piece of a `type` value does not compile by itself.
MonitorFilterConfig makeFilterBlock(const MonitorFilterGroup &group, const HiveNames &hiveNames,
                                    const std::map<Str, std::uint32_t> &eventTypeMasks);

} // namespace velmox
