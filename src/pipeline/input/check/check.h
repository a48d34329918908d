#pragma once

#include "pipeline/input/check/configured_stanza.h"

#include <set>

/// The room `check`: tells whoever writes stanzas what is wrong with them, or likely to be, before the
/// monitor runs on them. Stanzas are read with the lines on which they stand, compiled by the monitor's own
/// rooms, and gone through code by code.
namespace velmox {

enum class Severity
{
    Note,
    Warning,
    Error,
};

/// One thing that is wrong with a stanza, or likely to be.
struct Finding
{
    /// Of the line that is to be changed.
    ConfPlace place;
    /// The stanza in whose section that line stands: "default" for an inherited setting.
    Str stanza;
    /// Empty when it is about the stanza as a whole.
    Str key;
    Severity severity = Severity::Warning;
    /// What people search for, such as "bad-pattern": docs/administrator.md, "Traps", has an example of each.
    /// Scripts go by it, so that a code once given out keeps its meaning.
    std::string_view code;
    /// One line.
    Str message;
};

using Findings = std::vector<Finding>;

/// Whose stanzas are checked.
struct CheckRequest
{
    /// Of any scheme the settings are looked at, of `kMonitorScheme` patterns and their effects too.
    Str scheme;
    /// The keys that somebody reads in a stanza of the scheme.
    std::set<Str> keys;
    /// The schemes that there are.
    std::set<Str> schemes;
};

inline constexpr char kMonitorScheme[] = "WinRegMon";

/// Whether a stanza is one of the scheme, as the server sees it.
bool isOfScheme(const ConfiguredStanza &stanza, const Str &scheme);

/// Goes through the stanzas of a scheme, disabled ones too, and through those that were meant to be of it. In
/// the order of places, without the same finding twice: stanzas inherit from one section.
/// Asks the system for its roots and drives; reads no file. Main thread.
Findings checkStanzas(const ConfiguredStanzas &stanzas, const CheckRequest &request);

} // namespace velmox
