#pragma once

#include "pipeline/input/explain/written_path.h"
#include "pipeline/input/rules/hive_names.h"

namespace velmox {

/// A path as the kernel reports it, and how it was come by.
struct KernelPath
{
    Str path;
    /// A clause, such as "as the kernel reports it".
    Str remark;
};

/// Where a path leads on this system. The longest part of it that is a key is opened, to read its name and
/// nothing else, and the kernel is asked what it is: links such as the current control set are followed by
/// this. What is left is a value, or keys that are not there.
///
/// A path of the kernel's comes back as it is. Throws ExplainException when nothing can be said.
KernelPath kernelPath(const WrittenPath &path, const HiveNames &hiveNames);

/// The name below HKU of the key that HKCU stands for; empty if it is not known.
Str currentUserKey(const HiveNames &hiveNames);

} // namespace velmox
