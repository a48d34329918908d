#include "pipeline/input/modinputs/scheme.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace velmox {

namespace {

// Whether a stanza is in force, when its script runs, and what the server puts beside an event's text.
constexpr std::string_view kInternalArguments[] = {
    "disabled", "host", "index", "interval", "source", "sourcetype",
};

} // namespace

Str stanzaPrefix(const Str &scheme)
{
    return Str::concat(scheme, "://");
}

bool isInternalArgument(const Str &name)
{
    return std::find(std::begin(kInternalArguments), std::end(kInternalArguments), name.view()) !=
           std::end(kInternalArguments);
}

} // namespace velmox
