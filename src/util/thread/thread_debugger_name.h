#pragma once

namespace velmox {

/// Tells an attached debugger the name of a thread. Does nothing else; `name` must be valid for the call.
void tellDebuggerThreadName(unsigned threadId, const char *name);

} // namespace velmox
