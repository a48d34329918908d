#pragma once

#include <optional>
#include <string_view>

namespace velmox {

/// Severity of a message. A message is written when its level is at or above the threshold in force.
enum class LogLevel : int
{
    Debug,
    Info,
    Notice,
    Warn,
    Error,
    Crit,
    Alert,
    Fatal,
    Emerg
};

/// The name in upper case, as log lines and configuration have it; "???" for a value that is no level.
std::string_view logLevelName(LogLevel level);

/// The level of a name; the case must match.
std::optional<LogLevel> logLevelNamed(std::string_view name);

} // namespace velmox
