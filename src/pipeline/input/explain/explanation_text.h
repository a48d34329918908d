#pragma once

#include "pipeline/input/explain/explanation.h"

namespace velmox {

/// What a person asked about a value's type, which no rule looks at.
struct ValueTypeRemark
{
    /// Empty if nothing was asked.
    Str type;
    bool isDataShown = false;
};

/// The explanation for people, in whole lines. The last one is the verdict: `accepted stanza=NAME
/// index=INDEX`, with `-` for what the event does not carry, or `dropped`.
Str explanationText(const Explanation &explanation, const ValueTypeRemark &valueType);

/// The same as a JSON object on one line.
Str explanationJson(const Explanation &explanation);

} // namespace velmox
