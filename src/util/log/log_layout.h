#pragma once

#include "util/log/log_level.h"
#include "util/text/str_segment.h"
#include "util/time/time_formatter.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace velmox {

/// What a layout may show of one message beside its text.
struct LogRecord
{
    /// When it was logged and when logging first started, in 100-nanosecond units since 1601.
    std::uint64_t time = 0;
    std::uint64_t startTime = 0;
    StrSegment loggerName;
    LogLevel level = LogLevel::Info;
    bool truncatesLongMessages = true;
    /// Gives the calling thread's name; asked only by a layout that shows it.
    Str (*threadName)() = [] { return Str("Main Thread"); };
};

/// A compiled pattern that turns a record and its message into the bytes of a log line.
///
/// Conversions: `%m` message, `%n` line end, `%c` logger, `%p` level, `%t` thread, `%r` and `%R` milliseconds
/// and seconds since the start, `%u` processor time, `%d{format}` local date, `%%` a percent sign. Between
/// the percent sign and the letter: `-` (pad behind) or `0` (pad by zeros), the least width, a point and the
/// greatest width, in bytes. An unknown letter is left out with all that belongs to it.
///
/// Immutable once made; any number of threads may render at a time.
class LogLayout
{
public:
    explicit LogLayout(StrSegment pattern);

    /// Appends the line to `out`.
    void render(const LogRecord &record, StrSegment message, Str &out) const;

    const Str &pattern() const { return pattern_; }

    /// The shared layouts: the bare message, which every appender begins with, and the two named ones.
    static std::shared_ptr<const LogLayout> plain();
    static std::shared_ptr<const LogLayout> basic();
    static std::shared_ptr<const LogLayout> simple();

private:
    static constexpr std::size_t kNoMaximum = ~std::size_t{0};

    enum class Kind
    {
        Literal,
        Message,
        Category,
        Level,
        Thread,
        Milliseconds,
        Seconds,
        Clock,
        Date
    };
    struct Atom
    {
        Kind kind = Kind::Literal;
        Str literal;
        TimeFormatter date;
        std::size_t minimumWidth = 0;
        std::size_t maximumWidth = kNoMaximum;
        /// NUL pads by spaces behind the text, anything else stands in front of it.
        char pad = ' ';
    };
    class Compiler;

    static void appendMessage(const Atom &atom, const LogRecord &record, StrSegment message, Str &out);
    static void appendThread(const Atom &atom, const LogRecord &record, Str &out);
    static void appendContent(const Atom &atom, const LogRecord &record, StrSegment message, Str &out);
    static void fitToWidth(const Atom &atom, std::size_t start, Str &out);

    Str pattern_;
    std::vector<Atom> atoms_;
};

} // namespace velmox
