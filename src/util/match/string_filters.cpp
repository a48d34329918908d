#include "util/match/string_filters.h"

#include <cstring>
#include <new>

namespace velmox {

RegexStringFilter::RegexStringFilter(const Str &name, const Str &pattern)
    : StringFilter(name), regex_(pattern, true, 0)
{
}

bool RegexStringFilter::matches(const Str &text)
{
    return regex_.finds(text);
}

StringPrefixFilter::StringPrefixFilter(const Str &name, const Str &prefix)
    : StringFilter(name), prefix_(prefix)
{
}

bool StringPrefixFilter::matches(const Str &text)
{
    return std::strncmp(text.c_str(), prefix_.c_str(), prefix_.size()) == 0;
}

RegexFilterList::RegexFilterList(const StrVector &patterns) : SmartFilterList(kResortInterval, true)
{
    unsigned long long index = 0;
    for (const Str &pattern : patterns) {
        const Str name = Str::fromFormat("pattern-%llu", index++);
        // Null is ignored there; the number of a pattern that is left out stays its own.
        addFilter(new (std::nothrow) RegexStringFilter(name, pattern), true);
    }
}

} // namespace velmox
