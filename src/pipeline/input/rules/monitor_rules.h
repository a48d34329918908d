#pragma once

#include "pipeline/input/rules/event_filter_list.h"
#include "util/match/regex.h"

#include <map>
#include <memory>
#include <vector>

// The room `rules`: stanzas as what is asked of each record. The text of a stanza becomes a filter in a
// group (stanza_configuration.h); the group finds the filters that may take a record (event_filter_list.h)
// and says what the driver need not report at all (filter_block.h). Names of roots, drives and operations
// are carried between the forms of people and those of the kernel.
namespace velmox {

/// Names of the filter groups.
inline constexpr char kRegmonFilters[] = "regmon-filters";
inline constexpr char kProcmonFilters[] = "procmon-filters";

/// One enabled stanza.
struct SystemMonitoringConfig
{
    Str index;
    /// The hive pattern in its final form, lower case, for lower-case key paths.
    Regex hive;
    /// The stanza's `type`, split at "|".
    StrVector types;
    bool baseline = false;
    /// Seconds, as decimal text.
    Str baselineInterval;
    /// The stanza's name without its scheme.
    Str name;
    /// The process pattern, lower case, without the translation of drives.
    Regex proc;
};

/// The stanzas of one filter file: their filters, and what else they say.
struct MonitorFilterGroup
{
    /// True: a match keeps an event. False: a match drops it.
    bool inclusive = true;
    std::unique_ptr<SysMonEventFilterList> filters;
    std::vector<SystemMonitoringConfig> configs;

    bool passes(const SysMonFilterableEvent &event) { return filters->matches(event) == inclusive; }

    /// The stanza whose hive pattern finds something in the lower-case key path, the longest pattern text
    /// first, of equally long ones the first stanza; or null.
    const SystemMonitoringConfig *stanzaOf(const Str &keyPath);

private:
    void rank();

    // The stanzas in that order, and by their literals. Made when they are first needed, and made anew when
    // stanzas have been added since.
    std::vector<std::size_t> ranked_;
    LiteralIndex hives_;
    BitSet possible_;
};

/// What is watched, and to which stanza and index an accepted event belongs. Main thread only.
class MonitorRules
{
public:
    /// The group under a name, or null; asking for an absent name enters it with a null.
    MonitorFilterGroup *group(const Str &name);
    /// The group of the registry's filters, or null.
    MonitorFilterGroup *registryGroup();
    /// False when the name is taken; `group` is then gone.
    bool insert(const Str &name, std::unique_ptr<MonitorFilterGroup> group);

    /// The index of the stanza whose hive pattern matches the path, the longest pattern text first. `stanza`
    /// stays as it came in when none matches, and the index is then empty.
    Str getIndexAndStanzaForRegmon(const Str &keyPath, Str &stanza);
    /// The same by process pattern; the last stanza that matches decides.
    Str getIndexAndStanzaForProcmon(const Str &processPath, Str &stanza);

private:
    std::map<Str, std::unique_ptr<MonitorFilterGroup>> filterGroups_;
    // The one that every record asks for, once it is there.
    MonitorFilterGroup *registryGroup_ = nullptr;
    // Of the event at hand. Keeps its memory.
    Str foldedPath_;
};

} // namespace velmox
