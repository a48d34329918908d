#pragma once

#include "util/text/str_segment.h"

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

/// The level of a name; the case must match. Nothing for a word that names none, which may be an appender.
std::optional<LogLevel> logLevelNamed(std::string_view name);

/// Smallest limit that `appendCompressed` takes: the length of the marker with a number of 20 digits, the
/// longest.
inline constexpr std::size_t kMinimumCompressedLength = 45;

/// Appends `text`, which is longer than `limit`, in exactly `limit` bytes: its head, a marker that tells the
/// number of bytes left out, and, where there is room, its last 16 bytes.
void appendCompressed(StrSegment text, std::size_t limit, Str &out);

/// The text with each LF as the two characters `\n` and each CR as `\r`, so that it stays on one line and
/// none of it can pass for a message of its own.
Str withVisibleLineEnds(StrSegment text);

} // namespace velmox
