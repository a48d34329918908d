#pragma once

// conf/cache: the merged view of one configuration type, as one reader has it. It is built from the layers of
// the mappers when somebody reads, and kept until something says that it is stale: a write, another reader's
// rights, or, where hosts share their storage, a look at the layers from time to time.

#include "conf/ground/conf_lock.h"
#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/root/bundles_setup.h"
#include "conf/tree/properties_map.h"

#include <atomic>
#include <list>
#include <vector>

namespace velmox {

class ApplicationManager;
class ConfPathMapperManager;
class ConfSettings;
class SharedConfStates;

/// A cursor over the stanzas of a view, in their order. Valid only while the cache's lock is held. All but
/// `atEnd` only of a cursor that stands at a stanza.
class IConfCacheIteratorImpl
{
public:
    IConfCacheIteratorImpl(Stanzas::const_iterator at, const Stanzas &view) : at_(at), end_(view.end()) {}

    const Str &name() const { return at_->first; }
    const Str &expansion() const { return at_->second.expansion; }
    /// Adds the stanza's values to `out`, never over those there. `direct` when `out` is this stanza, not one
    /// that inherits from it.
    void copyTo(PropertiesMap &out, bool direct) const;
    bool atEnd() const { return at_ == end_; }
    void step() { ++at_; }

private:
    Stanzas::const_iterator at_;
    Stanzas::const_iterator end_;
};

/// Adds the stanza on which `at` stands, and what it inherits from that of `inherited`. Either may stand at
/// the end.
void copyStanza(const IConfCacheIteratorImpl &at, const IConfCacheIteratorImpl &inherited,
                PropertiesMap &out);

/// The merged view of one configuration type for one reader.
class IConfCache
{
public:
    virtual ~IConfCache() = default;
    /// Guards the view. To be held, with `refresh` called, for every read.
    virtual ConfLock &lock() = 0;
    virtual IConfCacheIteratorImpl begin() = 0;
    /// At the end when there is no such stanza.
    virtual IConfCacheIteratorImpl find(const Str &name) = 0;
    /// Marks the view stale. Does not take the cache's lock.
    virtual void invalidate() = 0;
    /// Adds what the acting user may delete, as deep as `levels` below the root.
    virtual void collectDeletable(unsigned levels, ConfPathTrie &out) = 0;
    /// Looks for changes, and rebuilds the view when it is stale. To be called with the lock held. May
    /// throw; the view then stays stale.
    virtual void refresh() = 0;
    /// Builds the view anew. To be called with the lock held.
    virtual void rebuild() = 0;
    /// Adds a stanza with what it inherits to `out`; nothing when there is none. Takes the place of
    /// `refresh`. Of a stale view no more is built than that, and it stays stale: a row of writes, each of
    /// which looks at its stanza alone, builds no views that nobody reads.
    virtual void readStanza(const Str &name, PropertiesMap &out) = 0;
};

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
    /// What each mapper had of the type when this cache last looked, in reading order. Each cache has its
    /// own, as each looks at times of its own.
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
        /// A list, so that those who join go into their place without a move of the others.
        using Entries = std::list<Entry>;

        /// Moves what is in `added` to its place in the list, and logs it.
        void splice(Entries::iterator at, Entries &added);
        Str textOfPlace(Entries::iterator at) const;
        static void logEntries(const char *title, const Entries &entries);

        Entries entries_;
    };

    /// Puts the stanza and "default" into `out` as `rebuild` would put them into the view.
    virtual void buildStanza(const Str &name, Stanzas &out) = 0;

    /// The time by which polls are due.
    virtual Timeval now() const { return Timeval::now(); }
    /// Never outside shared storage.
    bool isPollDue();
    /// Looks for changes in the layers when it is time to, and marks the view stale when there are.
    void poll();

    // What changes is under the lock, but for `dirty_`: whoever marks a view stale may hold locks that come
    // behind it.
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
