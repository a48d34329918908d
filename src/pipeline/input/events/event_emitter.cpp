#include "pipeline/input/events/event_emitter.h"

#include "util/time/timeval.h"

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

/// Appends a number that is not negative, with zeros in front up to a width.
void appendPadded(Str &out, unsigned number, std::size_t width)
{
    char digits[16];
    char *first = digits + sizeof digits;
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    const auto count = static_cast<std::size_t>(digits + sizeof digits - first);
    out.append(width > count ? width - count : 0, '0');
    out.append(first, count);
}

} // namespace

EventEmitter::EventEmitter(std::function<void(const Str &)> written, std::FILE *out)
    : eventWriter_(out), written_(std::move(written))
{
    event_.source = kSource;
    event_.sourcetype = kSource;
}

// Within one second only the milliseconds differ, which the conversion leaves as they are.
void EventEmitter::setTime(const SYSTEMTIME &time)
{
    unsigned milliseconds = time.wMilliseconds;
    if (lastLocalText_.empty() || !isSameSecond(time, lastTime_)) {
        SYSTEMTIME local = {};
        const bool isConverted = SystemTimeToTzSpecificLocalTime(nullptr, &time, &local) != FALSE;
        lastTime_ = isConverted ? time : SYSTEMTIME{};
        milliseconds = local.wMilliseconds;
        lastLocalText_.format("%02d/%02d/%d %02d:%02d:%02d.", local.wMonth, local.wDay, local.wYear,
                              local.wHour, local.wMinute, local.wSecond);
        event_.time.format("%lld", unixSeconds(time));
    }
    event_.data.assign(lastLocalText_);
    appendPadded(event_.data, milliseconds, 3);
}

void EventEmitter::emitEvent(const Str &text, const Str &index, const Str &stanza, const SYSTEMTIME &time)
{
    event_.stanza = stanza;
    event_.index = index;
    setTime(time);
    event_.data.push_back('\n');
    event_.data.append(text.c_str());
    while (kWhiteSpace.contains(event_.data.back())) {
        event_.data.pop_back();
    }
    eventWriter_.write(event_);
    written_(text);
}

} // namespace velmox
