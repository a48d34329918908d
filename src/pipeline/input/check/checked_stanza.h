#pragma once

#include "pipeline/input/check/configured_stanza.h"
#include "pipeline/input/check/pattern_syntax.h"
#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"

#include <memory>

namespace velmox {

/// The rules that the monitor makes of one stanza, were it enabled and the only one. Made by the monitor's
/// own code, and asked through it.
class StanzaRules
{
public:
    /// Null when the monitor would refuse the stanza, as a pattern does not compile. `hiveNames` must be
    /// filled; it is copied, and so stays as it is whatever the stanza names.
    static std::unique_ptr<StanzaRules> make(const ConfiguredStanza &stanza, const HiveNames &hiveNames);

    const SystemMonitoringConfig &config() const { return group_->configs.front(); }
    const RegMonEventFilter &filter() const;
    /// What the driver is asked for; nothing when a piece of `type` does not compile.
    const MonitorFilterConfig &filterBlock() const { return filterBlock_; }

    /// Whether the stanza makes all stanzas see the current control set in the place of a numbered one.
    bool namesCurrentControlSet() const { return !currentControlSetPath().empty(); }
    /// That numbered one: `\registry\machine\system\controlset001`.
    const Str &currentControlSetPath() const { return hiveNames_.currentControlSetPath(); }
    const HiveNames &hiveNames() const { return hiveNames_; }

    /// The final hive pattern in its parts; nothing for syntax that is not known.
    const std::optional<PatternPart> &hiveParts() const { return hiveParts_; }
    /// Key paths, in lower case, that the stanza's hive accepts.
    const StrVector &samplePaths() const { return samplePaths_; }

private:
    StanzaRules(std::unique_ptr<MonitorFilterGroup> group, HiveNames hiveNames);

    std::unique_ptr<MonitorFilterGroup> group_;
    HiveNames hiveNames_;
    MonitorFilterConfig filterBlock_;
    std::optional<PatternPart> hiveParts_;
    StrVector samplePaths_;
};

/// A stanza and what the monitor makes of it.
struct CheckedStanza
{
    const ConfiguredStanza *stanza;
    /// Null for a stanza of another scheme, or one that the monitor would refuse.
    std::unique_ptr<StanzaRules> rules;

    bool isInForce() const { return rules != nullptr && stanza->isEnabled(); }
};

/// The stanzas of the monitor's scheme, and what they do to each other.
struct CheckedStanzas
{
    HiveNames hiveNames;
    std::vector<CheckedStanza> stanzas;
    /// The group that the monitor would run with; null when there is nothing for it.
    std::unique_ptr<MonitorFilterGroup> inForce;
};

/// `stanzas` must outlive what is made of them.
CheckedStanzas compileStanzas(const std::vector<const ConfiguredStanza *> &stanzas);

} // namespace velmox
