#pragma once

namespace velmox {

class ConfPathBase;

/// Throws ConfPathDirectoryTraversalException when a part of the path that becomes a name on disk would lead
/// out of its directory: user, app and type. What lies deeper stands inside a file, where it may hold
/// anything.
void refuseTraversal(const ConfPathBase &path);

} // namespace velmox
