#include "util/log/log_suppressor.h"

#include "util/system/structured_exception.h"

#include <algorithm>

namespace velmox {

LogSuppressor::LogSuppressor(unsigned windowSeconds, unsigned threshold, Timeval (*now)())
    : windowSeconds_(windowSeconds), threshold_(threshold), now_(now)
{
}

void LogSuppressor::pass(const char *format, LogLevel level, const std::function<Str()> &make,
                         const Write &write)
{
    const std::lock_guard held(lock_);
    // A fault of the system in here must not leave the lock taken: it becomes an exception, which the lock's
    // owner sees.
    guarded([&] { passHeld(format, level, make(), write); });
}

// An entry counts the messages of one format. Up to the threshold they pass; from the next one on they are
// held back, and the moment of the first one held back begins the window. A message of any format that comes
// when the window is over releases a line with the number, under the text of the entry's first message if it
// is another's, and the entry goes. So a format that falls silent is told of when anything else is logged.

void LogSuppressor::passHeld(const Str &key, LogLevel level, const Str &text, const Write &write)
{
    // The text is the formatted one, for the line that is released when only others come.
    entries_.try_emplace(key, Entry{text, level, 0, threshold_, windowSeconds_});
    for (auto at = entries_.begin(); at != entries_.end();) {
        const bool done = visit(at->second, at->first == key ? &text : nullptr, write);
        at = done ? entries_.erase(at) : std::next(at);
    }
}

/// Gives an entry the message of its own format, or null when another format has one. True when the entry is
/// done with: its held-back messages are told, and it is to be dropped.
bool LogSuppressor::visit(Entry &entry, const Str *text, const Write &write) const
{
    if (text) {
        ++entry.count;
    }
    return !holdBack(entry, text) && release(entry, text ? *text : entry.message, write);
}

bool LogSuppressor::isExpired(const Entry &entry) const
{
    return !entry.firstSuppressed.isMax() &&
           now_().ticks() > entry.firstSuppressed.ticks() + entry.windowSeconds * Timeval::kTicksPerSecond;
}

bool LogSuppressor::holdBack(Entry &entry, const Str *text) const
{
    if (isExpired(entry)) {
        return false;
    }
    if (!text) {
        return true;
    }
    if (entry.count <= entry.threshold) {
        return false;
    }
    // The latest moment at first, so that the first one sets it; the others do only if the clock was set
    // back.
    entry.firstSuppressed = std::min(entry.firstSuppressed, now_());
    return true;
}

bool LogSuppressor::release(Entry &entry, const Str &text, const Write &write) const
{
    const bool suppressedSome = entry.count > entry.threshold;
    Str message = text;
    if (suppressedSome) {
        message.append("\r\n\t\t\t\t");
        message << static_cast<unsigned long long>(entry.count - entry.threshold)
                << " similar messages suppressed.  First occurred at: " << entry.firstSuppressed.toStr();
        entry.count = 0;
    }
    // Ahead of the write, which may fail: the entry must not look expired then.
    entry.firstSuppressed.setMax();
    write(entry.level, message);
    return suppressedSome;
}

} // namespace velmox
