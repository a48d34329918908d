#include "util/crash/crash_notes.h"

#include "util/thread/crash_sink.h"
#include "util/thread/thread.h"

#include <cstdarg>

namespace velmox {

namespace {

/// No thread has so many scopes open; a list that is longer runs in a circle.
constexpr unsigned kMostWritten = 1024;

} // namespace

void writeCrashNotes(CrashSink &sink, const Thread &thread)
{
    thread.dump(sink);
    unsigned count = 0;
    for (const ScopedPerThreadCrashLogNotation *note = thread.crashNotes().head; note != nullptr;
         note = note->next_) {
        if (++count > kMostWritten) {
            sink.print("Max crashlog notation count exceeded (1024), probably linked list of notations "
                       "corrupted. breaking out.\r\n");
            return;
        }
        sink.print("  ");
        note->writeNote(sink);
        sink.print("\r\n");
    }
}

ScopedPerThreadCrashLogNotation::ScopedPerThreadCrashLogNotation()
{
    Thread *thread = Thread::currentOrMain();
    notes_ = thread != nullptr ? &thread->crashNotes() : nullptr;
    if (notes_ == nullptr) {
        return;
    }
    next_ = notes_->head;
    (next_ != nullptr ? next_->previous_ : notes_->tail) = this;
    notes_->head = this;
}

ScopedPerThreadCrashLogNotation::~ScopedPerThreadCrashLogNotation()
{
    if (notes_ == nullptr) {
        return;
    }
    (previous_ != nullptr ? previous_->next_ : notes_->head) = next_;
    (next_ != nullptr ? next_->previous_ : notes_->tail) = previous_;
}

ScopedPerThreadCrashLogStringNotation::ScopedPerThreadCrashLogStringNotation(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    text_.vformat(fmt, args);
    va_end(args);
}

void ScopedPerThreadCrashLogStringNotation::writeNote(CrashSink &sink) const
{
    sink.print(text_);
}

} // namespace velmox
