#pragma once

#include "conf/tree/properties_map.h"

namespace velmox {

/// What the monitor's script tells a server that asks with `--scheme`.
extern const char kSchemeDescription[];

/// What is wrong with stanzas that are proposed for the monitor, in a sentence for the user who proposed
/// them; empty when nothing is.
///
/// Stricter than the monitor, which replaces odd values by defaults: who proposes them should hear of it.
Str findFault(const Stanzas &stanzas);

/// The answer to `--validate-arguments` that carries the sentence.
Str faultDocument(const Str &fault);

} // namespace velmox
