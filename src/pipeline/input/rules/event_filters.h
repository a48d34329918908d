#pragma once

#include "util/match/abstract_filter.h"
#include "util/match/regex.h"

namespace velmox {

/// What the filters see of an event; the caller folds all three to lower case.
struct SysMonFilterableEvent
{
    /// Path of the process image.
    Str process;
    /// Registry key path; empty for a process event.
    Str keyPath;
    /// The word of the operation: "set", "image" and so on.
    Str type;
};

/// The filter of one stanza: process, key path and type of an event must all match.
///
/// Type and process are searched, the key path must match as a whole. The patterns are folded to lower case
/// as text, like the events, which costs less than to match without regard to case; their escapes are
/// included: `\S` comes to mean `\s`.
class RegMonEventFilter : public AbstractFilter<SysMonFilterableEvent>
{
public:
    /// Throws RegexException.
    RegMonEventFilter(const Str &name, const Str &proc, const Str &hive, const Str &type);

    /// Allocates nothing. The operation is asked first and the key last, as that is the longest text.
    bool matches(const SysMonFilterableEvent &event) override;

    // The tests one by one, for a list that need not make them all.
    bool matchesType(const Str &type) const { return typeRegex_.finds(type); }
    bool matchesProcess(const Str &process) const { return anyProcess_ || procRegex_.finds(process); }
    bool matchesKey(const Str &keyPath) const;

    /// Whether the process has no say.
    bool takesAnyProcess() const { return anyProcess_; }
    /// The folded hive pattern. A path that is this text, letter for letter, passes, whatever the pattern
    /// means.
    const Str &hiveText() const { return hiveRegex_.pattern(); }

private:
    Regex procRegex_;
    bool anyProcess_;
    Regex hiveRegex_;
    Regex typeRegex_;
};

} // namespace velmox
