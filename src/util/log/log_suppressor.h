#pragma once

#include "util/log/log_message.h"
#include "util/text/str.h"
#include "util/time/timeval.h"

#include <functional>
#include <map>
#include <mutex>

namespace velmox {

/// Holds back a logger's messages once one format has come more often than a threshold, and releases one line
/// with their number when the window is over.
///
/// Any thread may call; the lock is held while messages are made and written, and is recursive because making
/// one may log. It comes before an appender's lock.
class LogSuppressor
{
public:
    using Write = std::function<void(LogLevel level, const Str &message)>;

    /// `now` is the clock, for which tests have one of their own.
    LogSuppressor(unsigned windowSeconds, unsigned threshold, Timeval (*now)() = Timeval::now);

    /// Takes the message of `format`, which `make` formats, and writes what is due of this format and all
    /// others.
    void pass(const char *format, LogLevel level, const std::function<Str()> &make, const Write &write);

private:
    /// What is known of one format since its first message, or since the last window was over.
    struct Entry
    {
        Str message; ///< the first one
        LogLevel level;
        std::uint64_t count = 0; ///< of all messages, those that passed too
        std::uint64_t threshold;
        std::uint64_t windowSeconds;
        Timeval firstSuppressed{Timeval::kMax}; ///< from when the window counts
    };

    void passHeld(const Str &key, LogLevel level, const Str &text, const Write &write);
    bool isExpired(const Entry &entry) const;
    bool holdBack(Entry &entry, const Str *text) const;
    bool release(Entry &entry, const Str &text, const Write &write) const;
    bool visit(Entry &entry, const Str *text, const Write &write) const;

    const unsigned windowSeconds_;
    const unsigned threshold_;
    Timeval (*const now_)();
    std::recursive_mutex lock_;
    /// By the text of the format, before formatting. Guarded by `lock_`.
    std::map<Str, Entry> entries_;
};

} // namespace velmox
