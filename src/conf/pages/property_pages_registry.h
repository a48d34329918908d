#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/pages/property_pages.h"

#include <map>
#include <memory>
#include <utility>

namespace velmox {

/// Owns the `PropertyPages` objects of a root. Any thread.
class PropertyPagesRegistry
{
public:
    explicit PropertyPagesRegistry(const BundlesSetup &setup);
    ~PropertyPagesRegistry();

    /// The object of a type, a context in this root and an acting user, made at the first request. Throws the
    /// exceptions of property_pages_exceptions.h.
    PropertyPages *get(const Str &typeName, const ConfContext &context, const Str &actingUser);

    /// Mark views stale: all, those of one type, those of one acting user, or one alone.
    void invalidateAll();
    void invalidateType(const Str &typeName);
    void invalidateActingUser(const Str &actingUser);
    void invalidate(PropertyPages &pages);

private:
    using Reader = std::pair<ConfContext, Str>;
    using Readers = std::map<Reader, std::unique_ptr<PropertyPages>>;

    static std::unique_ptr<PropertyPages> make(const Str &typeName, const Reader &reader);

    ConfLock lock_{ConfLockRank::Pages};
    std::map<Str, Readers> pages_;
};

} // namespace velmox
