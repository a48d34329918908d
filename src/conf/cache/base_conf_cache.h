#pragma once

#include "conf/cache/i_conf_cache.h"
#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/root/bundles_setup.h"

#include <atomic>
#include <list>
#include <vector>

namespace velmox {

class ApplicationManager;
class ConfPathMapperManager;
class ConfSettings;
class SharedConfStates;

/// What the views of a root are made of. All of it outlives them.
struct ConfSources
{
    const ConfSettings &settings;
    ConfPathMapperManager &mappers;
    const ApplicationManager &applications;
    SharedConfStates &states;
};

/// What all caches have in common: the view, and when it is stale. Outside shared storage the process knows
/// of all changes that matter and never looks for any; there it asks the layers once in a poll interval.
///
/// Any thread may mark a view stale without its lock. A reader takes the lock, calls `refresh` and reads; a
/// view that could not be built stays stale, and the exception is the reader's.
class BaseConfCache : public IConfCache
{
public:
    ConfLock &lock() override { return lock_; }
    IConfCacheIteratorImpl begin() override;
    IConfCacheIteratorImpl find(const Str &name) override;
    void invalidate() override { dirty_.store(true); }
    void refresh() override;
    void readStanza(const Str &name, PropertiesMap &out) override;

    const Str &typeName() const { return typeName_; }
    const ConfContext &context() const { return context_; }
    const ConfSources &sources() const { return sources_; }

protected:
    BaseConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources);

    /// The layers of the root, in reading order.
    std::vector<IConfPathMapper *> mappers() const;
    /// The view, for `rebuild` to fill.
    Stanzas &stanzas() { return stanzas_; }

private:
    /// What each mapper had of the type when this cache last looked, in reading order.
    class StateList
    {
    public:
        /// Takes in the mappers that are not in the list yet, each at its place in `mappers`.
        void follow(const std::vector<IConfPathMapper *> &mappers);
        /// The mappers whose type changed. Asks all, so that all states catch up.
        std::vector<const IConfPathMapper *> changedMappers(const Str &typeName);

    private:
        struct Entry
        {
            IConfPathMapper *mapper;
            std::unique_ptr<ConfTypeState> state;
        };
        using Entries = std::list<Entry>;

        void splice(Entries::iterator at, Entries &added);
        Str textOfPlace(Entries::iterator at) const;
        static void logEntries(const char *title, const Entries &entries);

        Entries entries_;
    };

    /// Puts the stanza and "default" into `out` as `rebuild` would put them into the view.
    virtual void buildStanza(const Str &name, Stanzas &out) = 0;

    /// The time by which polls are due.
    virtual Timeval now() const { return Timeval::now(); }
    bool isPollDue();
    /// Looks for changes in the layers when it is time to, and marks the view stale when there are.
    void poll();

    // All but `dirty_` under the lock.
    Stanzas stanzas_;
    const Str typeName_;
    const ConfContext context_;
    const ConfSources sources_;
    ConfLock lock_{ConfLockRank::Cache};
    std::atomic<bool> dirty_{true};
    const std::uint64_t pollMs_; ///< 0 where nobody has to look
    Timeval lastPoll_;
    Timeval nextPoll_;
    StateList states_;
};

} // namespace velmox
