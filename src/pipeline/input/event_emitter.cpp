#include "pipeline/input/event_emitter.h"

namespace velmox {

namespace {

constexpr char kSource[] = "WinRegistry";
constexpr CharSet kWhiteSpace("\t\n\v\f\r ");

// 1 January 1970 and one second, in 100-nanosecond units since 1601.
constexpr std::uint64_t kUnixEpoch = 0x19DB1DED53E8000;
constexpr std::uint64_t kTicksPerSecond = 10000000;

long long unixSeconds(const SYSTEMTIME &time)
{
    FILETIME fileTime = {};
    SystemTimeToFileTime(&time, &fileTime);
    const std::uint64_t ticks = std::uint64_t{fileTime.dwHighDateTime} << 32 | fileTime.dwLowDateTime;
    return ticks < kUnixEpoch ? 0 : static_cast<long long>((ticks - kUnixEpoch) / kTicksPerSecond);
}

Str localTimeText(const SYSTEMTIME &time)
{
    SYSTEMTIME local = {};
    SystemTimeToTzSpecificLocalTime(nullptr, &time, &local);
    return Str::fromFormat("%02d/%02d/%d %02d:%02d:%02d.%03d", local.wMonth, local.wDay, local.wYear,
                           local.wHour, local.wMinute, local.wSecond, local.wMilliseconds);
}

} // namespace

void EventEmitter::emitEvent(const Str &text, const Str &index, const Str &stanza, const SYSTEMTIME &time)
{
    InputEvent event;
    event.stanza = stanza;
    event.index = index;
    event.source = kSource;
    event.sourcetype = kSource;
    event.time.format("%lld", unixSeconds(time));
    event.data.format("%s\n%s", localTimeText(time).c_str(), text.c_str());
    event.data.trim(kWhiteSpace, true, true);
    eventWriter_.write(event);
    written_(text);
}

} // namespace velmox
