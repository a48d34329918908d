#pragma once

#include "companion/events/event_fields.h"
#include "util/match/regex_program.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmox {

/// Conditions of the form FIELD=PATTERN that an event must meet, all of them. FIELD is the name of a JSON
/// field, and PATTERN, a regular expression, is searched for in its text without regard to case; of a list
/// one text is enough. Where the search takes more steps than PCRE allows, a text counts as one in which the
/// pattern is found: an event too many is seen, one that is missing is not. For one thread.
class EventFilter
{
public:
    /// Throws std::invalid_argument, with what is wrong, for no such form or field, or a pattern that does
    /// not compile.
    void add(std::string_view condition);

    /// Whether the event meets all conditions; without one every event does.
    bool accepts(const EventFields &fields);

    /// A condition, as it was added, whose search was given up since this was asked last.
    std::optional<std::string> takeGivenUp();

private:
    struct Condition
    {
        std::string text;
        Field field;
        std::unique_ptr<RegexProgram> pattern;
        /// Told once.
        bool isTold = false;
    };

    bool isMet(Condition &condition, const EventFields &fields);

    std::vector<Condition> conditions_;
    std::optional<std::string> givenUp_;
};

} // namespace velmox
