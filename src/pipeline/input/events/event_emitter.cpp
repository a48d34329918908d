#include "pipeline/input/events/event_emitter.h"

#include "util/time/file_time.h"

namespace velmox {

namespace {

constexpr char kSource[] = "WinRegistry";
constexpr CharSet kWhiteSpace("\t\n\v\f\r ");

long long unixSeconds(const SYSTEMTIME &time)
{
    FILETIME fileTime = {};
    SystemTimeToFileTime(&time, &fileTime);
    return timevalOf(fileTime).toUnixSeconds();
}

bool isSameSecond(const SYSTEMTIME &a, const SYSTEMTIME &b)
{
    return a.wSecond == b.wSecond && a.wMinute == b.wMinute && a.wHour == b.wHour && a.wDay == b.wDay &&
           a.wMonth == b.wMonth && a.wYear == b.wYear;
}

} // namespace

// Within one second only the milliseconds differ, which the conversion leaves as they are.
Str EventEmitter::localTimeText(const SYSTEMTIME &time)
{
    if (isSameSecond(time, lastTime_)) {
        lastLocal_.wMilliseconds = time.wMilliseconds;
    } else {
        lastLocal_ = {};
        const bool isConverted = SystemTimeToTzSpecificLocalTime(nullptr, &time, &lastLocal_) != FALSE;
        lastTime_ = isConverted ? time : SYSTEMTIME{};
    }
    return Str::fromFormat("%02d/%02d/%d %02d:%02d:%02d.%03d", lastLocal_.wMonth, lastLocal_.wDay,
                           lastLocal_.wYear, lastLocal_.wHour, lastLocal_.wMinute, lastLocal_.wSecond,
                           lastLocal_.wMilliseconds);
}

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
