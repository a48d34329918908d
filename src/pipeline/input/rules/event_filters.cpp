#include "pipeline/input/rules/event_filters.h"

namespace velmox {

RegMonEventFilter::RegMonEventFilter(const Str &name, const Str &proc, const Str &hive, const Str &type)
    : AbstractFilter(name), anyProcess_(proc == ".*")
{
    procRegex_.compile(proc.lowered(), true, 0);
    hiveRegex_.compile(hive.lowered(), true, 0);
    // Asked once for each of a handful of words, as the list keeps the answers: not worth making faster.
    typeRegex_.compile(type.lowered(), false, 0);
}

bool RegMonEventFilter::matches(const SysMonFilterableEvent &event)
{
    return matchesType(event.type) && matchesProcess(event.process) && matchesKey(event.keyPath);
}

bool RegMonEventFilter::matchesKey(const Str &keyPath) const
{
    return hiveText().compareCaseless(keyPath) == 0 || hiveRegex_.matchesAll(keyPath);
}

} // namespace velmox
