#pragma once

namespace velmox {

class ConfPathBase;
class Str;

/// Throws ConfPathDirectoryTraversalException when the app or a part of the path holds a slash or a
/// backslash. A user may have any name, since a safe one stands for it on disk, and so may a stanza: it
/// stands inside a file, and is often named after a path.
void refuseTraversal(const ConfPathBase &path);

/// The same for one part, such as a stanza whose name is that of a file.
void refuseTraversal(const ConfPathBase &path, const Str &part);

} // namespace velmox
