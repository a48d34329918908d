#include "pipeline/input/check/checked_stanza.h"

#include "pipeline/input/check/pattern_samples.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "pipeline/input/rules/stanza_configuration.h"

namespace velmox {

namespace {

// What the monitor takes without options.
const StanzaDefaults kDefaults{"default", true};

// The filters have `type` as a whole; only what the driver is asked for goes by its pieces. So a piece that
// does not compile shows here first.
MonitorFilterConfig askedFor(const MonitorFilterGroup &group, const HiveNames &hiveNames)
{
    try {
        return makeFilterBlock(group, hiveNames, registryOperationMasks());
    } catch (const RegexException &) {
        return {};
    }
}

} // namespace

std::unique_ptr<StanzaRules> StanzaRules::make(const ConfiguredStanza &stanza, const HiveNames &hiveNames)
{
    Stanzas alone{{stanza.name, stanza.properties}};
    // A disabled stanza is checked as well, for whoever turns it on.
    alone.begin()->second.set("disabled", "0");
    // A copy for each stanza, as it notes whether a pattern names the current control set.
    HiveNames names = hiveNames;
    try {
        std::unique_ptr<MonitorFilterGroup> group = makeFilterGroup(alone, kDefaults, names);
        return group ? std::unique_ptr<StanzaRules>(new StanzaRules(std::move(group), std::move(names)))
                     : nullptr;
    } catch (const RegexException &) {
        return nullptr;
    }
}

StanzaRules::StanzaRules(std::unique_ptr<MonitorFilterGroup> group, HiveNames hiveNames)
    : group_(std::move(group)), hiveNames_(std::move(hiveNames)), filterBlock_(askedFor(*group_, hiveNames_)),
      hiveParts_(parsePattern(config().hive.pattern()))
{
    if (!hiveParts_) {
        return;
    }
    for (const Str &text : sampleTexts(*hiveParts_)) {
        // The samples are guesses at what a pattern means; that they match is the filter's word.
        if (filter().matchesKey(text)) {
            samplePaths_.push_back(text);
        }
    }
}

const RegMonEventFilter &StanzaRules::filter() const
{
    // The list takes no other kind of filter.
    return static_cast<const RegMonEventFilter &>(*group_->filters->filters().front());
}

CheckedStanzas compileStanzas(const std::vector<const ConfiguredStanza *> &stanzas)
{
    CheckedStanzas checked;
    checked.hiveNames.initHiveNameKeyMap();
    Stanzas inForce;
    for (const ConfiguredStanza *stanza : stanzas) {
        CheckedStanza one{stanza, StanzaRules::make(*stanza, checked.hiveNames)};
        if (one.isInForce()) {
            inForce.emplace(stanza->name, stanza->properties);
        }
        checked.stanzas.push_back(std::move(one));
    }
    HiveNames names = checked.hiveNames;
    checked.inForce = makeFilterGroup(inForce, kDefaults, names);
    return checked;
}

} // namespace velmox
