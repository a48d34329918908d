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
    guarded([&] { passHeld(format, level, make(), write); });
}

void LogSuppressor::passHeld(const Str &key, LogLevel level, const Str &text, const Write &write)
{
    entries_.try_emplace(key, Entry{text, level, 0, threshold_, windowSeconds_});
    for (auto at = entries_.begin(); at != entries_.end();) {
        const bool done = visit(at->second, at->first == key ? &text : nullptr, write);
        at = done ? entries_.erase(at) : std::next(at);
    }
}

/// Shows an entry its message, or null when the message is another's. True when the entry has had its day.
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
