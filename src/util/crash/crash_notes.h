#pragma once

#include "util/text/str.h"

namespace velmox {

class CrashSink;
class ScopedPerThreadCrashLogNotation;
class Thread;

/// The notes that hang on one thread, the latest in front. Used by its own thread alone, and read when that
/// thread dies. It owns nothing.
class CrashNotes
{
public:
    static constexpr unsigned kMostWritten = 1024;

    explicit CrashNotes(const Thread &thread) : thread_(thread) {}
    CrashNotes(const CrashNotes &) = delete;
    CrashNotes &operator=(const CrashNotes &) = delete;

    /// Writes the thread and a line for each note. The links may be damaged, so no more than
    /// `kMostWritten` are followed.
    void write(CrashSink &sink) const;

private:
    friend class ScopedPerThreadCrashLogNotation;

    ScopedPerThreadCrashLogNotation *head_ = nullptr;
    ScopedPerThreadCrashLogNotation *tail_ = nullptr;
    const Thread &thread_;
};

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
    friend class CrashNotes;

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

} // namespace velmox
