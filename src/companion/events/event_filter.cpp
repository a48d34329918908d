#include "companion/events/event_filter.h"

#include <algorithm>
#include <stdexcept>

namespace velmox {

namespace {

std::string fieldNames()
{
    std::string names;
    for (std::size_t at = 0; at < kFieldCount; ++at) {
        names += at == 0 ? "" : ", ";
        names += fieldName(static_cast<Field>(at));
    }
    return names;
}

bool found(const Regex &pattern, std::string_view text)
{
    return pattern.findAt(text.data(), static_cast<unsigned>(text.size()), false, false) >= 0;
}

} // namespace

void EventFilter::add(std::string_view condition)
{
    const std::size_t sign = condition.find('=');
    if (sign == std::string_view::npos) {
        throw std::invalid_argument("no FIELD=PATTERN: " + std::string(condition));
    }
    const std::string name(condition.substr(0, sign));
    const std::optional<Field> field = findField(name);
    if (!field) {
        throw std::invalid_argument("no such field: " + name + "; there are " + fieldNames());
    }
    Condition added{*field, {}};
    try {
        added.pattern.compile(Str::concat("(?i)", condition.substr(sign + 1)), true, 0);
    } catch (const RegexException &exception) {
        throw std::invalid_argument(std::string(condition) + ": " + exception.what());
    }
    conditions_.push_back(std::move(added));
}

bool EventFilter::accepts(const EventFields &fields) const
{
    return std::ranges::all_of(conditions_, [&](const Condition &condition) {
        return std::ranges::any_of(fields.texts(condition.field),
                                   [&](std::string_view text) { return found(condition.pattern, text); });
    });
}

} // namespace velmox
