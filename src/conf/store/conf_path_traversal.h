#pragma once

namespace velmox {

class ConfPathBase;
class Str;

/// Throws ConfPathDirectoryTraversalException when a part of the path that becomes a name on disk would lead
/// out of its directory: app and type. A user may have any name, since a safe one stands for it on disk; what
/// lies deeper stands inside a file, where it may hold anything.
void refuseTraversal(const ConfPathBase &path);

/// The same for one part, where that is a name on disk too.
void refuseTraversal(const ConfPathBase &path, const Str &part);

} // namespace velmox
