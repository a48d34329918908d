#include "pipeline/input/event_filters.h"

#include "util/literal_prefix.h"

namespace velmox {

RegMonEventFilter::RegMonEventFilter(const Str &name, const Str &proc, const Str &hive, const Str &type)
    : AbstractFilter(name), anyProcess_(proc == ".*"), hiveText_(hive.lowered()),
      hivePrefix_(literalPrefix(hiveText_))
{
    procRegex_.compile(proc.lowered(), true, 0);
    hiveRegex_.compile(hiveText_, true, 0);
    typeRegex_.compile(type.lowered(), true, 0);
}

// The tests have no effects, so the cheap ones come first; most filters of a long list end at the prefix. A
// path that is the pattern letter for letter passes, whatever the pattern means.
bool RegMonEventFilter::matches(const SysMonFilterableEvent &event)
{
    const bool isPattern = hiveText_.compareCaseless(event.keyPath) == 0;
    if (!isPattern && !event.keyPath.startsWith(hivePrefix_)) {
        return false;
    }
    return typeRegex_.match(event.type) && (anyProcess_ || procRegex_.match(event.process)) &&
           (isPattern || hiveRegex_.match(event.keyPath, nullptr, false, true));
}

} // namespace velmox
