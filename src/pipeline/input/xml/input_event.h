#pragma once

#include "util/text/str.h"

namespace velmox {

/// One event for the output stream. An empty text or a false flag leaves its element or attribute out.
struct InputEvent
{
    /// The event is a piece of a record, which the reader ends at `done`.
    bool unbroken = false;
    Str data;
    Str source;
    Str sourcetype;
    Str host;
    Str index;
    Str stanza;
    Str time;
    bool done = false;
};

} // namespace velmox
