#pragma once

#include "companion/events/event_fields.h"
#include "util/match/regex.h"

#include <string>
#include <vector>

namespace velmox {

/// Conditions of the form FIELD=PATTERN that an event must meet, all of them. FIELD is the name of a JSON
/// field, and PATTERN is searched for in its text, case not counted; of a list one text is enough.
class EventFilter
{
public:
    /// Throws std::invalid_argument, with what is wrong, for no such form or field, or a pattern that does
    /// not compile.
    void add(std::string_view condition);

    bool accepts(const EventFields &fields) const;

private:
    struct Condition
    {
        Field field;
        Regex pattern;
    };

    std::vector<Condition> conditions_;
};

} // namespace velmox
