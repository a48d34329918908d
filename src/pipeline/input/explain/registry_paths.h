#pragma once

#include "pipeline/input/rules/hive_names.h"
#include "util/text/base_exception.h"

// The room `explain`: what the monitor would make of one operation, told step by step, and the pattern for a
// path. It asks the rules that the monitor itself runs on and has none of its own. Here are paths: as people
// write them, as the kernel reports them, and as a pattern matches them.
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
/// Throws ExplainException when it is neither, and when two backslashes follow the root as in a pattern:
/// further on they can belong to the name of a value.
WrittenPath readWrittenPath(const Str &text);

/// The same with the kernel's two roots under their short names; others of the kernel's stay as they are.
WrittenPath withShortRoot(const WrittenPath &path);

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
/// a path that is two places, and for one whose backslashes are doubled.
HivePattern hivePattern(const WrittenPath &path, bool wow64, const Str &userKey);

} // namespace velmox
