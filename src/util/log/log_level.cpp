#include "util/log/log_level.h"

#include <array>
#include <cstddef>

namespace velmox {

namespace {

constexpr std::array<std::string_view, 9> kNames = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                                                    "CRIT",  "ALERT", "FATAL",  "EMERG"};

} // namespace

std::string_view logLevelName(LogLevel level)
{
    const auto index = static_cast<std::size_t>(level);
    return index < kNames.size() ? kNames[index] : "???";
}

std::optional<LogLevel> logLevelNamed(std::string_view name)
{
    for (std::size_t index = 0; index < kNames.size(); ++index) {
        if (kNames[index] == name) {
            return static_cast<LogLevel>(index);
        }
    }
    return std::nullopt;
}

} // namespace velmox
