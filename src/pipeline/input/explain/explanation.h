#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/explain/registry_paths.h"
#include "pipeline/input/rules/stanza_configuration.h"

#include <optional>
#include <vector>

namespace velmox {

/// One operation on the registry, as somebody asks about it.
struct Operation
{
    /// A word of a stanza's `type`, such as "set".
    Str word;
    WrittenPath key;
    /// The path of a program, on a drive or on a device; empty for a process that the monitor does not know.
    Str process;
};

/// What one stanza says to an operation. That a text matches is what the stanza's filter says.
struct StanzaAnswer
{
    Str name;
    bool process = false;
    bool key = false;
    bool type = false;
    /// What does not match, and why; empty if all does.
    Str why;

    bool matches() const { return process && key && type; }
};

/// What becomes of an operation, and how that comes about.
struct Explanation
{
    Str word;
    /// The key's path as the driver would report it, how that was found, and the path that the stanzas see:
    /// in lower case, with the current control set under that name if a stanza names it so.
    Str keyPath;
    Str keyRemark;
    Str filteredPath;
    bool isControlSetRenamed = false;
    /// The program as the kernel names it.
    Str process;

    /// In the order in which they are asked at first; the monitor moves those that match often to the front,
    /// which changes no verdict.
    std::vector<StanzaAnswer> stanzas;
    /// Whether a match keeps an event, and whether this one is kept.
    bool inclusive = true;
    bool passes = false;

    MonitorFilterConfig asked = {};
    /// Whether the driver, asked for this, reports the operation.
    bool isReported = false;

    /// Of the stanza that gives the event its name and index: its name, its index, and the characters of its
    /// pattern. Nothing if none does.
    struct Naming
    {
        Str stanza;
        Str index;
        std::size_t length = 0;
    };
    std::optional<Naming> naming;

    /// Whether an event comes of it.
    bool isAccepted() const { return passes && isReported; }
};

/// The hives of the filter block that a path of the kernel's lies in; none for a path elsewhere.
std::uint32_t hiveOf(const Str &keyPath);

/// Asks the monitor's own rules, made of these stanzas as at its start. Reads names of keys and drives of
/// this system, so that a configuration is best explained where it runs. Throws ExplainException for a
/// configuration with which the monitor would not run. Main thread.
Explanation explain(const Stanzas &stanzas, const StanzaDefaults &defaults, const Operation &operation);

/// Why a pattern does not match all of a path, in a clause: the character at which the literal text that it
/// begins with departs from the path, a text that any match would have to hold, how far it would match, or
/// that it finds nothing. Characters count from 1. Both are folded as the filters have them.
///
/// To be asked of a pattern that does not match; a clause about one that does is wrong.
Str whyNotAll(const Regex &pattern, const Str &path);

/// The same for a pattern that is not found anywhere in a text.
Str whyNotFound(const Regex &pattern, const Str &text);

} // namespace velmox
