#pragma once

#include "conf/cache/base_conf_cache.h"
#include "conf/tree/properties_map.h"
#include "util/match/string_filters.h"

#include <map>
#include <memory>
#include <utility>

namespace velmox {

// The room conf/pages is the door of the store: programs read and write settings by `PropertyPages` alone.
// The services behind it are made, and given what they work with, by the composition root next to it
// (shared_conf_services.h).

class ConfPath;
class ConfPathTrie;
class PropertyPagesRegistry;

/// Which stanzas a reader wants.
enum class DisabledMode
{
    OnlyEnabled = 0,
    OnlyDisabled = 1,
    All = 2,
};

/// The one door to configuration: reads and writes one type, such as "inputs", in one context.
///
/// Objects live to the end of the process; equal requests give the same one, so that readers share a view.
/// Any thread.
class PropertyPages
{
public:
    virtual ~PropertyPages() = default;

    static PropertyPages *get(const Str &typeName);
    /// Throws the exceptions of conf/ground/conf_exceptions.h.
    static PropertyPages *get(const Str &typeName, const ConfContext &context);

    /// Adds each stanza whose name passes the filter, as all layers together make it: with what it inherits
    /// from "default". A stanza that `out` has already keeps its values. The filter counts its checks and
    /// hits, so it is of one thread.
    void enumerateStanzas(StringFilter &filter, Stanzas &out, DisabledMode mode = DisabledMode::OnlyEnabled);
    void enumerateStanzasWithPrefix(const Str &prefix, Stanzas &out,
                                    DisabledMode mode = DisabledMode::OnlyEnabled);

    /// Writes what of `properties` differs from what is read now to the one file that the write rules name;
    /// with `overwriteAll` the stanza is removed from that file before. An empty `app` stands for that of the
    /// context. Throws PropertyPagesContextException when both are empty, and what `ConfPath::write` throws.
    ///
    /// A value that the caller read without a context and hands on unchanged is no difference, whatever
    /// layer it comes from: it would become a copy of a default.
    void write(const Str &app, const Str &stanza, const PropertiesMap &properties, bool overwriteAll);

    const Str &typeName() const { return typeName_; }
    const ConfContext &context() const { return context_; }
    const Str &actingUser() const { return actingUser_; }
    /// For messages.
    Str toStr() const;

protected:
    /// What a page is made with by its registry.
    struct Request
    {
        PropertyPagesRegistry &registry;
        const Str &typeName;
        const ConfContext &context;
        const Str &actingUser;
    };

    explicit PropertyPages(const Request &request);

    IConfCache &cache() { return *cache_; }
    const ConfSources &sources() const;

private:
    friend class PropertyPagesRegistry;

    virtual std::unique_ptr<IConfCache> createCache() const = 0;
    /// Whether the acting user's rights are not those of the last request. True once for each change.
    virtual bool haveRightsChanged() = 0;

    /// Leaves `out` untouched when there is no such stanza.
    void readStanza(const Str &name, PropertiesMap &out);
    /// The address of a stanza, with the rights of the acting user.
    ConfPath writeTarget(const Str &app, const Str &stanza) const;
    /// What a stanza is as the caller of a write sees it.
    PropertiesMap readExisting(const Str &stanza, const PropertiesMap &desired);
    /// Makes the tree to be written; false when there is nothing to write.
    bool putDifference(const ConfPath &target, const PropertiesMap &desired, bool overwriteAll,
                       ConfPathTrie &tree);
    /// Marks stale what a write of this object can have changed.
    void invalidateReaders();

    PropertyPagesRegistry &registry_;
    const Str typeName_;
    const ConfContext context_;
    const Str actingUser_;
    /// Null only while the object is being made.
    std::unique_ptr<IConfCache> cache_;
};

/// The pages of a context with neither user nor app.
class LegacyPropertyPages : public PropertyPages
{
public:
    explicit LegacyPropertyPages(const Request &request) : PropertyPages(request) {}

private:
    std::unique_ptr<IConfCache> createCache() const override;
    bool haveRightsChanged() override { return false; }
};

/// The pages of a context with an app, and perhaps a user.
class UserPropertyPages : public PropertyPages
{
public:
    explicit UserPropertyPages(const Request &request) : PropertyPages(request) {}

private:
    std::unique_ptr<IConfCache> createCache() const override;
    bool haveRightsChanged() override;
};

/// Owns the `PropertyPages` objects of a root. Any thread.
class PropertyPagesRegistry
{
public:
    explicit PropertyPagesRegistry(const ConfSources &sources) : sources_(sources) {}

    /// The object of a type, a context in this root and an acting user, made at the first request. Throws the
    /// exceptions of conf/ground/conf_exceptions.h.
    PropertyPages *get(const Str &typeName, const ConfContext &context, const Str &actingUser);

    /// Mark views stale: all, those of one type, those of one acting user, or one alone.
    void invalidateAll();
    void invalidateType(const Str &typeName);
    void invalidateActingUser(const Str &actingUser);
    void invalidate(PropertyPages &pages);

    const ConfSources &sources() const { return sources_; }

private:
    using Reader = std::pair<ConfContext, Str>;
    using Readers = std::map<Reader, std::unique_ptr<PropertyPages>>;

    std::unique_ptr<PropertyPages> make(const Str &typeName, const Reader &reader);

    const ConfSources sources_;
    ConfLock lock_{ConfLockRank::Pages};
    std::map<Str, Readers> pages_;
};

/// The registry of a root. Defined by the composition root (shared_conf_services.cpp), which knows all
/// services of a root.
PropertyPagesRegistry &propertyPagesRegistry(const BundlesSetup &setup);

} // namespace velmox
