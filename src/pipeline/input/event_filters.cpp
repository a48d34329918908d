#include "pipeline/input/event_filters.h"

namespace velmox {

RegMonEventFilter::RegMonEventFilter(const Str &name, const Str &proc, const Str &hive, const Str &type)
    : AbstractFilter(name), hiveText_(hive.lowered())
{
    procRegex_.compile(proc.lowered(), true, 0);
    hiveRegex_.compile(hiveText_, true, 0);
    typeRegex_.compile(type.lowered(), true, 0);
}

bool RegMonEventFilter::matches(const SysMonFilterableEvent &event)
{
    return typeRegex_.match(event.type) && procRegex_.match(event.process) && matchesHive(event.keyPath);
}

// A path that is the pattern letter for letter passes, whatever the pattern means.
bool RegMonEventFilter::matchesHive(const Str &keyPath) const
{
    return hiveText_.compareCaseless(keyPath) == 0 || hiveRegex_.match(keyPath, nullptr, false, true);
}

} // namespace velmox
