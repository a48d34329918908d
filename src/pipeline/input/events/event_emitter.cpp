#include "pipeline/input/events/event_emitter.h"

#include "pipeline/input/events/record_clock.h"
#include "util/time/calendar.h"

namespace velmox {

namespace {

constexpr char kSource[] = "WinRegistry";
constexpr CharSet kWhiteSpace("\t\n\v\f\r ");

constexpr std::uint64_t kTicksPerMillisecond = 10'000;

/// Replaces `out` by date and time up to the point before the milliseconds. Broken down here, as `local` has
/// the machine's zone in it already.
void formatLocalTime(Timeval local, Str &out)
{
    const auto seconds = static_cast<std::int64_t>(local.ticks() / Timeval::kTicksPerSecond) -
                         static_cast<std::int64_t>(Timeval::kUnixEpoch / Timeval::kTicksPerSecond);
    const std::int64_t days = calendar::floorDivide(seconds, calendar::kSecondsPerDay);
    const auto ofDay = static_cast<int>(seconds - days * calendar::kSecondsPerDay);
    const calendar::Date date = calendar::dateOf(days);
    out.format("%02d/%02d/%d %02d:%02d:%02d.", date.month + 1, date.dayOfMonth, static_cast<int>(date.year),
               ofDay / 3600, ofDay / 60 % 60, ofDay % 60);
}

/// Appends a number below a thousand by three digits.
void appendMilliseconds(Str &out, unsigned number)
{
    const char digits[] = {static_cast<char>('0' + number / 100), static_cast<char>('0' + number / 10 % 10),
                           static_cast<char>('0' + number % 10)};
    out.append(digits, sizeof digits);
}

} // namespace

EventEmitter::EventEmitter(std::function<void(const Str &)> written, std::FILE *out, Machine &machine,
                           LineEnds lineEnds)
    : machine_(machine), eventWriter_(out, lineEnds), written_(std::move(written))
{
    event_.source = kSource;
    event_.sourcetype = kSource;
}

// Within one second only the milliseconds differ, which the conversion leaves as they are. So the system is
// asked for the zone once a second.
void EventEmitter::setTime(Timeval time)
{
    auto milliseconds = static_cast<unsigned>(time.ticksOfSecond() / kTicksPerMillisecond);
    const std::uint64_t second = time.ticks() / Timeval::kTicksPerSecond;
    if (second != lastSecond_) {
        Timeval local;
        const bool isDate = static_cast<std::int64_t>(time.ticks()) >= 0;
        if (isDate && machine_.localTime(time, local)) {
            lastSecond_ = second;
            formatLocalTime(local, lastLocalText_);
        } else {
            // Nothing to keep: the next event is to be converted in any case.
            lastSecond_ = kNoSecond;
            lastLocalText_ = "00/00/0 00:00:00.";
            milliseconds = 0;
        }
        event_.time.format("%lld", isDate ? static_cast<long long>(time.toUnixSeconds()) : 0LL);
    }
    event_.data.assign(lastLocalText_);
    appendMilliseconds(event_.data, milliseconds);
}

void EventEmitter::emitEvent(const Str &text, const Str &index, const Str &stanza, Timeval time)
{
    event_.stanza = stanza;
    event_.index = index;
    setTime(time);
    event_.data.push_back('\n');
    // To the first NUL, where a text ends for all who print it by a format.
    event_.data.append(text.c_str());
    // The line ends behind the body. There is always the time in front, so this ends.
    while (kWhiteSpace.contains(event_.data.back())) {
        event_.data.pop_back();
    }
    eventWriter_.write(event_);
    written_(text);
}

} // namespace velmox
