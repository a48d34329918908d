#include "conf/cache/base_conf_cache.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("BaseConfCache::StateList");

} // namespace

void BaseConfCache::StateList::follow(const std::vector<IConfPathMapper *> &mappers)
{
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
    if (log.debugEnabled()) {
        logEntries("Inserting new states:", added);
        logEntries("Into existing states:", entries_);
        log.debug("%s", textOfPlace(at).c_str());
    }
    entries_.splice(at, added);
    if (log.debugEnabled()) {
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
    log.debug("%s", title);
    for (const Entry &entry : entries) {
        log.debug("%s %s", entry.mapper->describe().c_str(), entry.state->toStr().c_str());
    }
}

} // namespace velmox
