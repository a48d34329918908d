#include "pipeline/input/rules/event_filters.h"

#include "util/match/literal_prefix.h"

namespace velmox {

namespace {

// False only for texts that differ in their second byte by more than its case, which spares most comparisons:
// a pattern begins with an escaped backslash, a path with a bare one.
bool mayBeEqual(const Str &pattern, const Str &path)
{
    if (pattern.size() < 2 || path.size() < 2) {
        return true;
    }
    const bool areAscii = ((pattern[0] | pattern[1] | path[0] | path[1]) & 0x80) == 0;
    return !areAscii || ((pattern[1] ^ path[1]) & ~0x20) == 0;
}

// Whether the path begins with the prefix. Most that do not differ in its last byte already.
bool beginsWith(const Str &path, const Str &prefix)
{
    return prefix.empty() || (path.size() >= prefix.size() && path[prefix.size() - 1] == prefix.back() &&
                              path.startsWith(prefix));
}

} // namespace

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
    const bool isPattern =
        mayBeEqual(hiveText_, event.keyPath) && hiveText_.compareCaseless(event.keyPath) == 0;
    if (!isPattern && !beginsWith(event.keyPath, hivePrefix_)) {
        return false;
    }
    return typeRegex_.match(event.type) && (anyProcess_ || procRegex_.match(event.process)) &&
           (isPattern || hiveRegex_.match(event.keyPath, nullptr, false, true));
}

} // namespace velmox
