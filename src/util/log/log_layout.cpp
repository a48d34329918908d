#include "util/log/log_layout.h"

#include "util/text/ascii.h"
#include "util/time/struct_tm.h"
#include "util/time/timeval.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

namespace velmox {

namespace {

// In bytes. A message longer than the first is shown in the second, unless its logger or the pattern says
// otherwise; the third is all that is shown of a thread's name.
constexpr std::size_t kLongMessage = 16384;
constexpr std::size_t kCompressedMessage = 100;
constexpr std::size_t kLongestThreadName = 100;
constexpr std::size_t kLargestWidth = 1'000'000;

constexpr const char *kIsoDate = "%Y-%m-%d %H:%M:%S,%l";

struct NamedDate
{
    std::string_view name;
    const char *format;
};
constexpr std::array<NamedDate, 4> kNamedDates = {{
    {"", kIsoDate},
    {"ISO8601", kIsoDate},
    {"DATE", "%d %b %Y %H:%M:%S,%l"},
    {"ABSOLUTE", "%H:%M:%S,%l"},
}};

TimeFormatter dateFormat(StrSegment argument)
{
    Str format = argument.toStr();
    for (const NamedDate &named : kNamedDates) {
        if (argument.view() == named.name) {
            format = named.format;
        }
    }
    TimeFormatter formatter;
    // A date in another form is better than lines without one.
    if (!formatter.compile(format.c_str())) {
        formatter.compile(kIsoDate);
    }
    return formatter;
}

void appendDate(const TimeFormatter &format, std::uint64_t time, Str &out)
{
    LocalStructTmHires local;
    // A warning about a clock out of range would be a line with a date again, without an end.
    Timeval(time).toLocalHiresQuietly(local);
    format.format(out, local, local.ticks);
}

std::uint64_t millisecondsSinceStart(const LogRecord &record)
{
    // Somebody may have set the clock back since the start.
    const std::uint64_t time = std::max(record.time, record.startTime);
    return static_cast<std::uint64_t>(Timeval(time).millisecondsSince(Timeval(record.startTime)));
}

} // namespace

/// Reads a pattern from left to right into atoms.
class LogLayout::Compiler
{
public:
    Compiler(StrSegment pattern, std::vector<Atom> &atoms) : rest_(pattern), atoms_(atoms) {}

    void run()
    {
        while (!rest_.empty()) {
            const char byte = take();
            if (byte == '%') {
                conversion();
            } else {
                literal_.push_back(byte);
            }
        }
        endLiteral();
    }

private:
    char take()
    {
        const char byte = rest_[0];
        rest_.removePrefix(1);
        return byte;
    }

    bool takeIf(char wanted)
    {
        if (rest_.empty() || rest_[0] != wanted) {
            return false;
        }
        rest_.removePrefix(1);
        return true;
    }

    bool atDigit() const { return !rest_.empty() && isAsciiDigit(rest_[0]); }

    /// A number of any length; beyond the largest width it makes no difference, and must not overflow.
    std::size_t width()
    {
        std::size_t value = 0;
        while (atDigit()) {
            value = value * 10 + static_cast<std::size_t>(take() - '0');
            value = value < kLargestWidth ? value : kLargestWidth;
        }
        return value;
    }

    StrSegment argument()
    {
        if (!takeIf('{')) {
            return {};
        }
        // A brace that is not closed takes all that is left.
        const std::size_t length = rest_.view().find('}');
        const StrSegment text = rest_.substr(0, length);
        rest_.removePrefix(length == Str::npos ? rest_.size() : length + 1);
        return text;
    }

    void endLiteral()
    {
        if (!literal_.empty()) {
            Atom atom;
            atom.literal = std::exchange(literal_, Str());
            atoms_.push_back(std::move(atom));
        }
    }

    /// Behind the percent sign. A conversion that the pattern ends in the middle of is left out.
    void conversion()
    {
        if (takeIf('%')) {
            literal_.push_back('%');
            return;
        }
        Atom atom;
        if (takeIf('-')) {
            atom.pad = '\0';
        } else if (takeIf('0')) {
            atom.pad = '0';
        }
        atom.minimumWidth = width();
        // A point without digits says nothing, and is passed over.
        if (takeIf('.') && atDigit()) {
            atom.maximumWidth = width();
        }
        if (rest_.empty()) {
            return;
        }
        const char letter = take();
        const StrSegment text = argument();
        // The literal in front goes first; what is behind a letter that is not known joins it.
        if (choose(letter, text, atom)) {
            endLiteral();
            atoms_.push_back(std::move(atom));
        }
    }

    static bool choose(char letter, StrSegment argument, Atom &atom)
    {
        switch (letter) {
        case 'n':
            // On every system: logs have the line ends of Windows.
            atom.literal = "\r\n";
            return true;
        case 'd':
            atom.kind = Kind::Date;
            atom.date = dateFormat(argument);
            return true;
        default:
            return chooseField(letter, atom);
        }
    }

    static bool chooseField(char letter, Atom &atom)
    {
        static constexpr std::array<std::pair<char, Kind>, 7> kFields = {{
            {'m', Kind::Message},
            {'c', Kind::Category},
            {'p', Kind::Level},
            {'t', Kind::Thread},
            {'r', Kind::Milliseconds},
            {'R', Kind::Seconds},
            {'u', Kind::Clock},
        }};
        for (const auto &[name, kind] : kFields) {
            if (name == letter) {
                atom.kind = kind;
                return true;
            }
        }
        return false;
    }

    StrSegment rest_;
    std::vector<Atom> &atoms_;
    Str literal_;
};

LogLayout::LogLayout(StrSegment pattern)
{
    Compiler(pattern, atoms_).run();
}

void LogLayout::render(const LogRecord &record, StrSegment message, Str &out) const
{
    for (const Atom &atom : atoms_) {
        const std::size_t start = out.size();
        appendContent(atom, record, message, out);
        fitToWidth(atom, start, out);
    }
}

void LogLayout::appendMessage(const Atom &atom, const LogRecord &record, StrSegment message, Str &out)
{
    const bool limited = atom.maximumWidth != kNoMaximum;
    // A width that has no room for the marker cuts, like that of any other field.
    if (limited && message.size() > atom.maximumWidth && atom.maximumWidth >= kMinimumCompressedLength) {
        appendCompressed(message, atom.maximumWidth, out);
    } else if (!limited && message.size() > kLongMessage && record.truncatesLongMessages) {
        appendCompressed(message, kCompressedMessage, out);
    } else {
        out << message;
    }
}

void LogLayout::appendThread(const Atom &atom, const LogRecord &record, Str &out)
{
    const Str name = record.threadName();
    if (atom.maximumWidth == kNoMaximum && name.size() > kLongestThreadName) {
        appendCompressed(name, kLongestThreadName, out);
    } else {
        out << name;
    }
}

void LogLayout::appendContent(const Atom &atom, const LogRecord &record, StrSegment message, Str &out)
{
    switch (atom.kind) {
    case Kind::Literal:
        out << atom.literal;
        break;
    case Kind::Message:
        appendMessage(atom, record, message, out);
        break;
    case Kind::Category:
        out << record.loggerName;
        break;
    case Kind::Level:
        out << logLevelName(record.level);
        break;
    case Kind::Thread:
        appendThread(atom, record, out);
        break;
    case Kind::Milliseconds:
        out << static_cast<unsigned long long>(millisecondsSinceStart(record));
        break;
    case Kind::Seconds:
        out << static_cast<unsigned long long>(millisecondsSinceStart(record) / 1000);
        break;
    case Kind::Clock:
        out << static_cast<long>(std::clock());
        break;
    case Kind::Date:
        appendDate(atom.date, record.time, out);
        break;
    }
}

/// Cuts before it pads, so that a least width above the greatest still holds.
void LogLayout::fitToWidth(const Atom &atom, std::size_t start, Str &out)
{
    if (out.size() - start > atom.maximumWidth) {
        out.resize(start + atom.maximumWidth);
    }
    const std::size_t length = out.size() - start;
    if (length >= atom.minimumWidth) {
        return;
    }
    const std::size_t missing = atom.minimumWidth - length;
    if (atom.pad == '\0') {
        out.append(missing, ' ');
    } else {
        out.insert(start, Str(missing, atom.pad));
    }
}

// The shared layouts are never destroyed, as static destructors log too.
std::shared_ptr<const LogLayout> LogLayout::plain()
{
    static const auto &layout = *new std::shared_ptr<const LogLayout>(new LogLayout("%m%n"));
    return layout;
}

std::shared_ptr<const LogLayout> LogLayout::basic()
{
    static const auto &layout = *new std::shared_ptr<const LogLayout>(new LogLayout("%R %p %c %m%n"));
    return layout;
}

std::shared_ptr<const LogLayout> LogLayout::simple()
{
    static const auto &layout = *new std::shared_ptr<const LogLayout>(new LogLayout("%-8p: %m%n"));
    return layout;
}

} // namespace velmox
