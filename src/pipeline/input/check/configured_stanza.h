#pragma once

#include "conf/tree/properties_map.h"

#include <vector>

namespace velmox {

/// A line of a conf file.
struct ConfPlace
{
    /// As programs of the system spell it.
    Str file;
    std::uint64_t line = 0;
    /// The place of the file in the order in which files count.
    std::size_t layer = 0;
};

/// A line that ends in a backslash and takes in the next one, which was likely meant for a line of its own.
struct SwallowedLine
{
    ConfPlace place;
    /// Of the line that goes on: "default" for one above all headers, and no key for a header.
    Str stanza;
    Str key;
    /// The line that is lost as such, without blanks around it.
    Str taken;
};

/// A stanza as all files together make it, and where it is to be changed.
struct ConfiguredStanza
{
    Str name;
    /// With what it inherits.
    PropertiesMap properties;
    /// Of the first file that has the stanza.
    ConfPlace header;
    /// Where the settings that count stand, inherited ones in `[default]`.
    std::map<Str, ConfPlace> places;
    /// In its sections of all files, and in those that it inherits from. Whether or not the value counts.
    std::vector<SwallowedLine> swallowed;

    bool isEnabled() const { return !properties.isDisabled(); }
    /// The text of a key, or the empty text.
    Str value(const char *key) const { return properties.get(key); }
};

using ConfiguredStanzas = std::vector<ConfiguredStanza>;

/// Reads all stanzas of a type, disabled ones too, as a reader without user and app sees them.
///
/// What counts is the store's word; the files are read once more for the lines, by the store's parser and in
/// its order, so that a key that stands several times is found where it counts. Ordered by name.
ConfiguredStanzas readConfiguredStanzas(const Str &type);

} // namespace velmox
