#pragma once

#include "util/text/base_exception.h"
#include "util/text/str.h"

// The room `explain`: what the monitor would make of one operation, told step by step, and the pattern for a
// path. It asks the rules that the monitor itself runs on and has none of its own.
namespace velmox {

/// What a person asked for cannot be answered; the text says why.
class ExplainException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// A path of the registry as people write it, taken apart. A trailing backslash is gone.
struct WrittenPath
{
    /// "HKLM", "HKU", "HKCU", "HKCC" or "HKCR", however it was spelled. Empty for a path that the kernel
    /// would report.
    Str root;
    /// The names below the root, with single backslashes between; of a kernel's path all of it.
    Str rest;

    bool isKernels() const { return root.empty(); }
};

/// Reads a path: a root by its short or its long name in any case, as registry editors and shells show it, or
/// what the kernel reports, which begins with `\REGISTRY\`.
///
/// Throws ExplainException when it is neither, and when its backslashes are doubled as in a pattern.
WrittenPath readWrittenPath(const Str &text);

/// The same with the kernel's two roots under their short names; others of the kernel's stay as they are.
WrittenPath withShortRoot(const WrittenPath &path);

} // namespace velmox
