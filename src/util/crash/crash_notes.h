#pragma once

#include "util/text/str.h"

namespace velmox {

class CrashSink;
class Thread;
struct CrashNotes;

/// Hangs a note on the calling thread for the length of a scope; it is asked for its text only if the process
/// dies within. A thread that no `Thread` object stands for keeps no notes.
class ScopedPerThreadCrashLogNotation
{
public:
    ScopedPerThreadCrashLogNotation();
    virtual ~ScopedPerThreadCrashLogNotation();
    ScopedPerThreadCrashLogNotation(const ScopedPerThreadCrashLogNotation &) = delete;
    ScopedPerThreadCrashLogNotation &operator=(const ScopedPerThreadCrashLogNotation &) = delete;

    /// Writes the note, without a line end. The state of the process is unknown: no locks, no heap.
    virtual void writeNote(CrashSink &sink) const = 0;

private:
    friend void writeCrashNotes(CrashSink &sink, const Thread &thread);

    CrashNotes *notes_;
    ScopedPerThreadCrashLogNotation *next_ = nullptr;
    ScopedPerThreadCrashLogNotation *previous_ = nullptr;
};

/// A note whose text is known beforehand.
class ScopedPerThreadCrashLogStringNotation : public ScopedPerThreadCrashLogNotation
{
public:
    explicit ScopedPerThreadCrashLogStringNotation(const char *fmt, ...) VELMOX_PRINTF(2, 3);

    void writeNote(CrashSink &sink) const override;

private:
    Str text_;
};

/// Writes the thread and a line for each of its notes, the latest first. The links may be damaged, so no more
/// than 1,024 are followed.
void writeCrashNotes(CrashSink &sink, const Thread &thread);

} // namespace velmox
