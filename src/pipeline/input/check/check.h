#pragma once

#include "pipeline/input/check/finding.h"

#include <set>

/// The room `check`: tells whoever writes stanzas what is wrong with them, or likely to be, before the
/// monitor runs on them. Stanzas are read with the lines on which they stand, compiled by the monitor's own
/// rooms, and gone through code by code.
namespace velmox {

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

/// Goes through the stanzas of a scheme, disabled ones too, and through those that were meant to be of it.
/// Asks the system for its roots and drives; reads no file. Main thread.
Findings checkStanzas(const ConfiguredStanzas &stanzas, const CheckRequest &request);

} // namespace velmox
