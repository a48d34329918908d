#pragma once

#include "conf/cache/i_conf_cache.h"
#include "conf/store/conf_context.h"
#include "conf/tree/properties_map.h"
#include "util/match/string_filters.h"

#include <memory>

namespace velmox {

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
/// Objects live to the end of the process; equal requests give the same one. Any thread.
class PropertyPages
{
public:
    virtual ~PropertyPages() = default;

    static PropertyPages *get(const Str &typeName);
    /// Throws the exceptions of property_pages_exceptions.h.
    static PropertyPages *get(const Str &typeName, const ConfContext &context);

    /// Adds each stanza whose name passes the filter, as all layers together make it: with what it inherits
    /// from "default". A stanza that `out` has already keeps its values.
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
    PropertyPages(const Str &typeName, const ConfContext &context, const Str &actingUser);

    IConfCache &cache() { return *cache_; }

private:
    friend class PropertyPagesRegistry;

    virtual std::unique_ptr<IConfCache> createCache() const = 0;
    /// Whether the acting user's rights are not those of the last request.
    virtual bool haveRightsChanged() = 0;

    PropertyPagesRegistry &registry() const;
    /// Leaves `out` untouched when there is no such stanza.
    void readStanza(const Str &name, PropertiesMap &out);
    ConfPath writeTarget(const Str &app, const Str &stanza) const;
    /// What a stanza is as the caller of a write sees it.
    PropertiesMap readExisting(const Str &stanza, const PropertiesMap &desired);
    /// Makes the tree to be written; false when there is nothing to write.
    bool putDifference(const ConfPath &target, const PropertiesMap &desired, bool overwriteAll,
                       ConfPathTrie &tree);
    /// Marks stale what a write of this object can have changed.
    void invalidateReaders();

    const Str typeName_;
    const ConfContext context_;
    const Str actingUser_;
    std::unique_ptr<IConfCache> cache_;
};

} // namespace velmox
