#pragma once

#include "conf/conf_context.h"
#include "conf/i_conf_cache.h"
#include "conf/properties_map.h"
#include "util/string_filters.h"

#include <map>
#include <memory>

namespace velmox {

/// Which stanzas a reader wants.
enum class DisabledMode
{
    OnlyEnabled = 0,
    OnlyDisabled = 1,
    All = 2,
};

using Stanzas = std::map<Str, PropertiesMap>;

/// The one door to configuration: reads and writes one type, such as "inputs", in one context.
///
/// Objects live to the end of the process; equal requests give the same one. Any thread.
class PropertyPages
{
public:
    virtual ~PropertyPages();

    static PropertyPages *get(const Str &typeName);
    /// Throws the exceptions of property_pages_exceptions.h.
    static PropertyPages *get(const Str &typeName, const ConfContext &context);

    /// Adds each stanza whose name passes the filter, as all layers together make it: with what it inherits
    /// from "default". A stanza that `out` has already keeps its values.
    void enumerateStanzas(StringFilter &filter, Stanzas &out, DisabledMode mode = DisabledMode::OnlyEnabled);
    void enumerateStanzasWithPrefix(const Str &prefix, Stanzas &out,
                                    DisabledMode mode = DisabledMode::OnlyEnabled);

    /// Writes what of `properties` differs from what is read now to the one file that the write rules name;
    /// with `overwriteAll` the stanza is removed from that file before. Throws ConfPathWriteException.
    void write(const Str &app, const Str &stanza, const PropertiesMap &properties, bool overwriteAll);

    const Str &typeName() const { return typeName_; }
    const ConfContext &context() const { return context_; }
    const Str &actingUser() const { return actingUser_; }

protected:
    PropertyPages(const Str &typeName, const ConfContext &context, const Str &actingUser);

private:
    friend class PropertyPagesRegistry;

    virtual std::unique_ptr<IConfCache> createCache() const = 0;
    /// Whether the acting user's rights are not those of the last request.
    virtual bool haveRightsChanged() = 0;

    const Str typeName_;
    const ConfContext context_;
    const Str actingUser_;
    std::unique_ptr<IConfCache> cache_;
};

} // namespace velmox
