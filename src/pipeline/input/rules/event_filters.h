#pragma once

#include "util/match/regex.h"
#include "util/match/smart_filter_list.h"

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
/// as text, their escapes included: `\S` comes to mean `\s`.
class RegMonEventFilter : public AbstractFilter<SysMonFilterableEvent>
{
public:
    /// Throws RegexException.
    RegMonEventFilter(const Str &name, const Str &proc, const Str &hive, const Str &type);

    /// Allocates nothing.
    bool matches(const SysMonFilterableEvent &event) override;

private:
    Regex procRegex_;
    /// The process pattern finds something in any text.
    bool anyProcess_;
    Regex hiveRegex_;
    Regex typeRegex_;
    /// The folded hive pattern.
    Str hiveText_;
    /// What a key path must begin with for the hive pattern to match.
    Str hivePrefix_;
};

/// The filters of one group, tried at first in the order of their stanzas.
class SysMonEventFilterList : public SmartFilterList<SysMonFilterableEvent>
{
public:
    SysMonEventFilterList() : SmartFilterList(kResortInterval, true) {}
};

} // namespace velmox
