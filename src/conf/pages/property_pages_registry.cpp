#include "conf/pages/property_pages_registry.h"

#include "conf/pages/legacy_property_pages.h"
#include "conf/pages/user_property_pages.h"

#include <mutex>

namespace velmox {

PropertyPagesRegistry::PropertyPagesRegistry(const BundlesSetup &) {}

PropertyPagesRegistry::~PropertyPagesRegistry() = default;

PropertyPages *PropertyPagesRegistry::get(const Str &typeName, const ConfContext &context,
                                          const Str &actingUser)
{
    Reader reader(context, actingUser);
    const std::lock_guard guard(lock_);
    Readers &readers = pages_[typeName];
    const auto found = readers.find(reader);
    if (found != readers.end()) {
        return found->second.get();
    }
    std::unique_ptr<PropertyPages> made = make(typeName, reader);
    return readers.emplace(std::move(reader), std::move(made)).first->second.get();
}

std::unique_ptr<PropertyPages> PropertyPagesRegistry::make(const Str &typeName, const Reader &reader)
{
    const auto &[context, actingUser] = reader;
    std::unique_ptr<PropertyPages> pages;
    if (context.isPlain()) {
        pages = std::make_unique<LegacyPropertyPages>(typeName, context);
    } else {
        pages = std::make_unique<UserPropertyPages>(typeName, context, actingUser);
    }
    pages->cache_ = pages->createCache();
    return pages;
}

void PropertyPagesRegistry::invalidateAll()
{
    const std::lock_guard guard(lock_);
    for (const auto &[typeName, readers] : pages_) {
        for (const auto &[reader, pages] : readers) {
            pages->cache_->invalidate();
        }
    }
}

void PropertyPagesRegistry::invalidateType(const Str &typeName)
{
    const std::lock_guard guard(lock_);
    for (const auto &[reader, pages] : pages_[typeName]) {
        pages->cache_->invalidate();
    }
}

void PropertyPagesRegistry::invalidateActingUser(const Str &actingUser)
{
    const std::lock_guard guard(lock_);
    for (const auto &[typeName, readers] : pages_) {
        for (const auto &[reader, pages] : readers) {
            if (pages->actingUser() == actingUser) {
                pages->cache_->invalidate();
            }
        }
    }
}

void PropertyPagesRegistry::invalidate(PropertyPages &pages)
{
    const std::lock_guard guard(lock_);
    pages.cache_->invalidate();
}

} // namespace velmox
