#pragma once

#include "util/text/str.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <map>
#include <memory>

namespace velmox {

class ConfAcl;

/// One value of a stanza, with where it came from.
struct PropertyValue
{
    Str value;
    /// Precedence of the layer that supplied the value; the higher wins.
    std::int32_t level = 0;
    Str user = "nobody";
    Str app = "system";
    /// The stanza in whose section the value stands; "default" marks an inherited one.
    Str originStanza;
    std::uint64_t generation = 0;
    bool removable = false;
    Str version;
    /// Of the file that supplied the value; zero when that is not known.
    Timeval modtime;
    /// May be null.
    std::shared_ptr<const ConfAcl> metadata;
};

/// One stanza: its values by key, in byte order. The store's readers and the input document give the same
/// form.
struct PropertiesMap
{
    std::map<Str, PropertyValue> properties;
    /// Where the stanza itself comes from: its value is normally empty, its origin stanza is its own name.
    PropertyValue self;
    /// May be null.
    std::shared_ptr<const ConfAcl> metadata;
    /// The stanza's name with what stands for other text in it filled in.
    Str expansion;

    /// The value, or the empty text when the key is missing.
    Str get(const Str &key) const;
    /// False, with `out` untouched, when the key is missing or its value empty.
    bool tryGet(const Str &key, Str &out) const;
    /// The value as a boolean, or `dflt` when the key is missing or no boolean.
    bool getBool(const Str &key, bool dflt) const { return get(key).toBool(dflt, dflt); }
    /// Whether the key `disabled` says so. A stanza without it is in force; text that is no boolean disables.
    bool isDisabled() const;
    /// Inserts the key or overwrites its value.
    void set(const Str &key, const Str &value) { properties[key].value = value; }
    /// The app that supplied what has the highest level, where inherited values don't count, save in
    /// "default".
    Str appName() const;
};

/// By name.
using Stanzas = std::map<Str, PropertiesMap>;

} // namespace velmox
