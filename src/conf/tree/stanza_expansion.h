#pragma once

#include "util/text/pathname.h"

namespace velmox {

/// What a stanza's name stands for when it holds a relative path, as in "monitor://./logs": the name with the
/// point (or the backslash) behind "://" replaced by the root directory of the file in which it stands, and
/// each reference to an environment variable that is set (`$NAME`, `${NAME}` or `%NAME%`) filled in. Empty
/// for other names.
Str stanzaExpansion(const Str &name, const Pathname &rootDirectory);

} // namespace velmox
