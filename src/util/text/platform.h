#pragma once

#include <cstddef>
#include <cstdint>

namespace velmox {
class Str;
struct StructTm;
class WideStr;
} // namespace velmox

/// The few services of the operating system that pure code rests on. One implementation serves Windows; a
/// minimal native one lets sanitizers and fuzzers run the pure code.
namespace velmox::platform {

/// The calling thread's last error; `setLastError` is for restoring it.
unsigned lastError();
void setLastError(unsigned error);

/// Appends the converted text. Lengths count units of the source; ill-formed input is substituted, never
/// refused.
void appendUtf16AsUtf8(const char16_t *text, std::size_t length, Str &out);
void appendUtf8AsUtf16(const char *text, std::size_t length, WideStr &out);

/// The system's message for an error code, as it stands in the message table; false when it has none.
bool systemMessage(unsigned error, WideStr &out);

/// UTC in 100-nanosecond units since 1 January 1601.
std::uint64_t systemTime();

/// The end of the year 3000, the last moment that the C run-time library of Windows breaks down in every
/// zone, in seconds since 1970.
inline constexpr std::int64_t kLastLocalTime = 32'535'244'799;

/// Breaks seconds since 1970 down in the process's local zone; false before 1970 and behind the year 3000.
bool localTime(std::int64_t unixSeconds, StructTm &out);
/// The way back; fields beyond their range carry over, and a negative daylight flag leaves it to the zone.
bool localToUnix(const StructTm &tm, std::int64_t &unixSeconds);
/// Appends the local zone's name in standard or in daylight saving time.
void localZoneName(bool daylight, Str &out);

/// Writes to standard error, whole or not at all as far as the system allows; a failure is not reported.
void writeStandardError(const char *bytes, std::size_t length);

} // namespace velmox::platform
