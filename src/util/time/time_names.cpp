#include "util/time/time_names.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::string_view kWeekDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};
constexpr std::string_view kMonths[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};

template <std::size_t count>
std::string_view nameAt(const std::string_view (&names)[count], std::int32_t at)
{
    return at >= 0 && static_cast<std::size_t>(at) < count ? names[at] : "???";
}

} // namespace

std::string_view weekDayName(std::int32_t weekDay)
{
    return nameAt(kWeekDays, weekDay);
}

std::string_view monthName(std::int32_t month)
{
    return nameAt(kMonths, month);
}

void appendFraction(Str &out, std::uint32_t ticks, unsigned digits)
{
    constexpr std::uint32_t kTenth = 1'000'000;
    std::uint32_t rest = std::min(ticks, 10 * kTenth - 1);
    for (; digits != 0 && rest != 0; --digits) {
        out.push_back(static_cast<char>('0' + rest / kTenth));
        rest = rest % kTenth * 10;
    }
    out.append(digits, '0');
}

} // namespace velmox
