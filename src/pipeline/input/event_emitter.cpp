#include "pipeline/input/event_emitter.h"

#include "util/timeval.h"

namespace velmox {

namespace {

constexpr char kSource[] = "WinRegistry";
constexpr CharSet kWhiteSpace("\t\n\v\f\r ");

long long unixSeconds(const SYSTEMTIME &time)
{
    FILETIME fileTime = {};
    SystemTimeToFileTime(&time, &fileTime);
    return Timeval::fromHalves(fileTime.dwLowDateTime, fileTime.dwHighDateTime).toUnixSeconds();
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
