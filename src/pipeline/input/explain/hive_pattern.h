#pragma once

#include "pipeline/input/explain/written_path.h"

namespace velmox {

/// A value for `hive`, and what its reader should know of it.
struct HivePattern
{
    Str hive;
    /// Sentences, each to stand on a line of its own.
    StrVector notes;
};

/// The pattern that matches a key, all that is below it, and nothing else, whatever characters its path has
/// and whatever stands in the names below. It neither names the current control set, which would change what
/// all other stanzas see, nor anything that the kernel does not report.
///
/// With `wow64` it matches what 32-bit programs get for the same path too. `userKey` is the name below HKU of
/// the key that HKCU stands for; it is needed for the classes of that user alone. Throws ExplainException for
/// a path that is two places.
HivePattern hivePattern(const WrittenPath &path, bool wow64, const Str &userKey);

} // namespace velmox
