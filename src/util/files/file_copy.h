#pragma once

#include "util/files/file_descriptor.h"
#include "util/files/file_permissions.h"
#include "util/text/pathname.h"

namespace velmox {

/// Copies a file. What stands at the target is deleted first, and the new file gets the permissions. When
/// both names mean the same file, nothing is done. False, with the reason in the last error and without a
/// torn target, on failure.
bool copyFileTo(const Pathname &from, const Pathname &to, FilePermissions permissions);

/// Copies the content of a file behind what `target` holds.
bool copyContent(const Pathname &from, FileDescriptor &target);

} // namespace velmox
