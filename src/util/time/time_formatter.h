#pragma once

#include "util/time/struct_tm.h"
#include "util/time/time_format.h"

#include <cstdint>
#include <vector>

namespace velmox {

/// A time format, compiled once and run many times. Read-only during runs, so threads may share it.
///
/// The format language is that of strftime with its usual extensions: the flags `^`, `#`, `-`, `_` and `0`,
/// widths, and fractions of the second. `%l` is the 12-hour hour, or milliseconds where it follows `%s` or
/// the seconds of a time of day.
class TimeFormatter
{
public:
    /// False, with the formatter left empty, when the format is not understood.
    bool compile(const char *fmt);
    void clear();

    std::size_t atomCount() const { return atoms_.size(); }

    /// Appends the moment to `out`. `ticks` are the 100-nanosecond ticks of the second; `source` answers for
    /// the zone of `tm`.
    void format(Str &out, const StructTm &tm, std::uint32_t ticks,
                const ZoneSource &source = LocalZoneSource::instance()) const;

private:
    std::vector<TimeFormatAtom> atoms_;
    Str literals_;
};

} // namespace velmox
