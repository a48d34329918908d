#include "conf/cache/base_conf_cache.h"

#include "conf/root/conf_settings.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/tree/conf_path_base.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("BaseConfCache");
Logger stateLog("BaseConfCache::StateList");

constexpr std::uint64_t kTicksPerMillisecond = Timeval::kTicksPerSecond / 1000;

} // namespace

void IConfCacheIteratorImpl::copyTo(PropertiesMap &out, bool direct) const
{
    const PropertiesMap &stanza = at_->second;
    // Most often `out` is empty, and copying a whole map needs no look-ups.
    if (out.properties.empty()) {
        out.properties = stanza.properties;
    } else {
        out.properties.insert(stanza.properties.begin(), stanza.properties.end());
    }
    if (direct && out.self.originStanza.empty()) {
        out.self = stanza.self;
        out.metadata = stanza.metadata;
        out.expansion = stanza.expansion;
    }
}

void copyStanza(const IConfCacheIteratorImpl &at, const IConfCacheIteratorImpl &inherited, PropertiesMap &out)
{
    if (at.atEnd()) {
        return;
    }
    // The own values first: copying never replaces what is there, so what is inherited fills the gaps alone.
    at.copyTo(out, true);
    if (!inherited.atEnd() && at.name() != kDefaultStanza) {
        inherited.copyTo(out, false);
    }
}

BaseConfCache::BaseConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources)
    : typeName_(typeName), context_(context), sources_(sources), pollMs_(sources.settings.rebuildPollMs())
{
}

IConfCacheIteratorImpl BaseConfCache::begin()
{
    return {stanzas_.cbegin(), stanzas_};
}

IConfCacheIteratorImpl BaseConfCache::find(const Str &name)
{
    return {stanzas_.find(name), stanzas_};
}

void BaseConfCache::refresh()
{
    poll();
    // Cleared first: what makes the view stale while it is being built counts for the next read.
    if (!dirty_.exchange(false)) {
        return;
    }
    try {
        rebuild();
    } catch (...) {
        dirty_.store(true);
        throw;
    }
}

void BaseConfCache::readStanza(const Str &name, PropertiesMap &out)
{
    poll();
    // Of a stale view no more is built than is asked for; the view itself stays as it is, and stale. A row
    // of writes would otherwise build views of whole types, of which each next write makes waste.
    Stanzas built;
    const bool isStale = dirty_.load();
    if (isStale) {
        buildStanza(name, built);
    }
    const Stanzas &from = isStale ? built : stanzas_;
    copyStanza({from.find(name), from}, {from.find(kDefaultStanza), from}, out);
}

std::vector<IConfPathMapper *> BaseConfCache::mappers() const
{
    return sources_.mappers.mappers();
}

void BaseConfCache::poll()
{
    if (!isPollDue()) {
        return;
    }
    // A mapper that has just come starts with its present state: that it came is no change of the type.
    states_.follow(mappers());
    const std::vector<const IConfPathMapper *> changed = states_.changedMappers(typeName_);
    for (const IConfPathMapper *const mapper : changed) {
        log.info("[%s] detected change in type %s %s", mapper->describe().c_str(), typeName_.c_str(),
                 context_.toStr().c_str());
    }
    // Counted from the end of the look, which may take long on a slow share.
    lastPoll_ = now();
    nextPoll_ = Timeval(lastPoll_.ticks() + pollMs_ * kTicksPerMillisecond);
    if (!changed.empty()) {
        invalidate();
    }
}

bool BaseConfCache::isPollDue()
{
    if (pollMs_ == 0) {
        return false;
    }
    const Timeval time = now();
    // A clock that was set back would keep changes out of sight until it has caught up.
    if (time < lastPoll_) {
        log.warn("Current time (%s) precedes previous poll time (%s).", time.toStr().c_str(),
                 lastPoll_.toStr().c_str());
        return true;
    }
    // The first time at once: both times are zero before it.
    return time >= nextPoll_;
}

void BaseConfCache::StateList::follow(const std::vector<IConfPathMapper *> &mappers)
{
    // Mappers are only ever added, so that the list is what `mappers` was before, in the same order.
    Entries added;
    auto at = entries_.begin();
    for (IConfPathMapper *const mapper : mappers) {
        if (at != entries_.end() && at->mapper == mapper) {
            splice(at, added);
            ++at;
        } else {
            added.push_back({mapper, mapper->newState()});
        }
    }
    splice(at, added);
}

std::vector<const IConfPathMapper *> BaseConfCache::StateList::changedMappers(const Str &typeName)
{
    std::vector<const IConfPathMapper *> changed;
    for (const Entry &entry : entries_) {
        // The question brings the state up to date, so it is put to those behind the first change too.
        if (entry.mapper->hasChangedSince(typeName, *entry.state)) {
            changed.push_back(entry.mapper);
        }
    }
    return changed;
}

void BaseConfCache::StateList::splice(Entries::iterator at, Entries &added)
{
    if (added.empty()) {
        return;
    }
    if (stateLog.debugEnabled()) {
        logEntries("Inserting new states:", added);
        logEntries("Into existing states:", entries_);
        stateLog.debug("%s", textOfPlace(at).c_str());
    }
    entries_.splice(at, added);
    if (stateLog.debugEnabled()) {
        logEntries("States are now:", entries_);
    }
}

Str BaseConfCache::StateList::textOfPlace(Entries::iterator at) const
{
    if (at == entries_.begin()) {
        return "At beginning";
    }
    if (at == entries_.end()) {
        return "At end";
    }
    return Str::fromFormat("In middle: %s", at->mapper->describe().c_str());
}

void BaseConfCache::StateList::logEntries(const char *title, const Entries &entries)
{
    stateLog.debug("%s", title);
    for (const Entry &entry : entries) {
        stateLog.debug("%s %s", entry.mapper->describe().c_str(), entry.state->toStr().c_str());
    }
}

} // namespace velmox
