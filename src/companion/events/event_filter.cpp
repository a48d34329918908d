#include "companion/events/event_filter.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

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
    const char *error = nullptr;
    const Str pattern = Str::concat("(?i)", condition.substr(sign + 1));
    std::unique_ptr<RegexProgram> program = RegexProgram::compile(pattern, true, 0, error);
    if (program == nullptr) {
        throw std::invalid_argument(std::string(condition) + ": " + error);
    }
    conditions_.push_back({std::string(condition), *field, std::move(program)});
}

bool EventFilter::accepts(const EventFields &fields)
{
    return std::ranges::all_of(conditions_, [&](Condition &condition) { return isMet(condition, fields); });
}

bool EventFilter::isMet(Condition &condition, const EventFields &fields)
{
    bool isUndecided = false;
    for (const std::string_view text : fields.texts(condition.field)) {
        std::array<int, 3> offsets{};
        // The reader hands out valid UTF-8, so that PCRE need not look through each text for it.
        const int result = condition.pattern->exec(text.data(), text.size(), PCRE_NO_UTF8_CHECK,
                                                   offsets.data(), offsets.size());
        // 0 as well: found, with more groups than there is room for. Where it was found is of no interest.
        if (result >= 0) {
            return true;
        }
        isUndecided = isUndecided || result != PCRE_ERROR_NOMATCH;
    }
    if (isUndecided && !condition.isTold) {
        condition.isTold = true;
        givenUp_ = condition.text;
    }
    return isUndecided;
}

std::optional<std::string> EventFilter::takeGivenUp()
{
    return std::exchange(givenUp_, std::nullopt);
}

} // namespace velmox
