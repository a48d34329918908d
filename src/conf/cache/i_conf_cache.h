#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/tree/properties_map.h"

#include <memory>

namespace velmox {

class ConfPathTrie;

/// Stands at a stanza of a cache. Valid only while the cache's lock is held.
class IConfCacheIteratorImpl
{
public:
    virtual ~IConfCacheIteratorImpl() = default;
    virtual std::unique_ptr<IConfCacheIteratorImpl> clone() const = 0;
    virtual const Str &name() const = 0;
    virtual const Str &expansion() const = 0;
    /// Adds the stanza's values to `out`, never over those there. `direct` when `out` is this stanza, not one
    /// that inherits from it.
    virtual void copyTo(PropertiesMap &out, bool direct) const = 0;
    virtual bool atEnd() const = 0;
    virtual void step() = 0;
};

/// Adds the stanza on which `at` stands, and what it inherits from that of `inherited`. Either may stand at
/// the end.
void copyStanza(const IConfCacheIteratorImpl &at, const IConfCacheIteratorImpl &inherited,
                PropertiesMap &out);

/// The merged view of one configuration type for one reader.
class IConfCache
{
public:
    using Iterator = std::unique_ptr<IConfCacheIteratorImpl>;

    virtual ~IConfCache() = default;
    /// Guards the view. To be held, with `refresh` called, for every read.
    virtual ConfLock &lock() = 0;
    virtual Iterator begin() = 0;
    /// At the end when there is no such stanza.
    virtual Iterator find(const Str &name) = 0;
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
