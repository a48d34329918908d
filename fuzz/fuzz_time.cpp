#include "conf/root/time_with_unit.h"
#include "fuzz/fuzz_target.h"
#include "util/time/time_formatter.h"

#include <cstring>

namespace velmox::fuzz {
namespace {

class FixedZone : public ZoneSource
{
public:
    explicit FixedZone(std::int32_t offset) : offset_(offset) {}

    std::optional<std::int64_t> unixSeconds(const StructTm &tm) const override
    {
        return tm.asUtcSeconds() - offset_;
    }
    std::size_t zoneName(const StructTm &, char *buffer, std::size_t size) const override
    {
        std::memset(buffer, 'Z', size);
        return size;
    }
    std::int32_t offsetSeconds(const StructTm &) const override { return offset_; }

private:
    std::int32_t offset_;
};

void checkFields(const StructTm &tm, std::int64_t seconds)
{
    require(tm.asUtcSeconds() == seconds, "the seconds come back");
    require(tm.seconds >= 0 && tm.seconds < 60 && tm.minutes >= 0 && tm.minutes < 60 && tm.hours >= 0 &&
                tm.hours < 24 && tm.dayOfMonth >= 1 && tm.dayOfMonth <= 31 && tm.month >= 0 &&
                tm.month < 12 && tm.weekDay >= 0 && tm.weekDay < 7 && tm.yearDay >= 0 && tm.yearDay < 366,
            "each field is in its range");
}

void checkFormat(const Str &format, const StructTm &tm, std::uint32_t ticks, const ZoneSource &zone)
{
    TimeFormatter formatter;
    if (!formatter.compile(format.c_str())) {
        require(formatter.atomCount() == 0, "what does not compile leaves nothing");
        return;
    }
    Str once = "kept";
    formatter.format(once, tm, ticks, zone);
    require(once.startsWith("kept"), "a formatter appends");
    TimeFormatter twice;
    require(twice.compile(Str::concat(format, format).c_str()) || format.empty() || format.contains("%"),
            "plain text compiles");
    if (!format.contains("%")) {
        require(once.view().substr(4) == std::string_view(format.c_str()), "plain text stands for itself");
    }
}

void checkStamp(std::uint64_t ticks)
{
    const Timeval stamp(ticks);
    GmtStructTm gmt;
    stamp.toGmt(gmt);
    const std::int64_t seconds = stamp.toUnixSeconds();
    Timeval back;
    if (seconds != 0 && back.setUnixSeconds(seconds, stamp.ticksOfSecond())) {
        require(back == stamp || stamp.isMax(), "a stamp comes back");
    }
    Str text;
    stamp.toUnixStr(text, 7);
    require(!text.empty() && !stamp.toStr().empty(), "each stamp has a text");
}

} // namespace

/// A moment, and lines that are taken as time formats and as times with a unit.
VELMOX_FUZZ_TARGET(time)
{
    Input input(bytes);
    const std::uint64_t number = input.number();
    const auto seconds = static_cast<std::int64_t>(number % 800'000'000'000) - 400'000'000'000;
    const FixedZone zone(static_cast<std::int32_t>(number % 100'000) - 50'000);
    StructTm tm;
    tm.setUtcSeconds(seconds);
    checkFields(tm, seconds);
    checkStamp(number);
    for (const Str &line : input.lines()) {
        checkFormat(line, tm, static_cast<std::uint32_t>(number % Timeval::kTicksPerSecond), zone);
        const std::optional<std::uint64_t> span = millisecondsOfTime(line);
        require(!span || millisecondsOfTime(Str::concat(" ", line)) == span || line.empty(),
                "blanks in front");
    }
}

} // namespace velmox::fuzz
