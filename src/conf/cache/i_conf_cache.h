#pragma once

// conf/cache: the merged view of one configuration type, as one reader has it. It is built from the layers of
// the mappers when somebody reads, and kept until something says that it is stale: a write, another reader's
// rights, or, where hosts share their storage, a look at the layers from time to time.

#include "conf/ground/conf_lock.h"
#include "conf/tree/properties_map.h"

namespace velmox {

class ConfPathTrie;

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
    /// Looks for changes, and rebuilds the view when it is stale.
    virtual void refresh() = 0;
    /// Builds the view anew. To be called with the lock held.
    virtual void rebuild() = 0;
    /// Adds a stanza with what it inherits to `out`; nothing when there is none. Takes the place of
    /// `refresh`. Of a stale view no more is built than that, and it stays stale: a row of writes, each of
    /// which looks at its stanza alone, builds no views that nobody reads.
    virtual void readStanza(const Str &name, PropertiesMap &out) = 0;
};

} // namespace velmox
