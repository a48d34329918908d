#include "util/thread/counted_tls_slot.h"

#include "util/system/last_error_keeper.h"
#include "util/thread/thread_primitives.h"

namespace velmox {

namespace {

/// Null is a value as good as any: only the last error tells that the call failed, and it is put back because
/// a name for a log line is read between a failure and its report.
bool readSlot(DWORD slot, void *&value)
{
    const DWORD error = GetLastError();
    value = TlsGetValue(slot); // a success sets the last error to 0
    if (value == nullptr && GetLastError() != ERROR_SUCCESS) {
        return false;
    }
    SetLastError(error);
    return true;
}

void *checkedGet(DWORD slot)
{
    void *value = nullptr;
    if (!readSlot(slot, value)) {
        thread_primitives::reportFailure("TlsGetValue");
    }
    return value;
}

void checkedFree(DWORD slot)
{
    if (!TlsFree(slot)) {
        thread_primitives::reportFailure("TlsFree");
    }
}

} // namespace

/// Without a slot the first to come allocates one ahead and offers it; who loses gives it back and joins the
/// other's.
void CountedTlsSlot::enter()
{
    while (!enterIfUsed()) {
        const DWORD slot = TlsAlloc();
        if (slot == TLS_OUT_OF_INDEXES) {
            thread_primitives::reportFailure("TlsAlloc");
        }
        State none = 0;
        // Slot and count change in one step: nobody is counted without a slot, or reads a slot that no count
        // keeps.
        if (state_.compare_exchange_strong(none, State{slot} << 32 | 1)) {
            return;
        }
        checkedFree(slot);
    }
}

bool CountedTlsSlot::enterIfUsed()
{
    State state = state_.load();
    while (countOf(state) != 0) {
        if (state_.compare_exchange_weak(state, state + 1)) {
            return true;
        }
    }
    return false;
}

void CountedTlsSlot::leave()
{
    State state = state_.load();
    while (!state_.compare_exchange_weak(state, countOf(state) == 1 ? 0 : state - 1)) {
    }
    // The state that was replaced: this was the last user, and nobody can find the slot any more.
    if (countOf(state) == 1) {
        freeSlot(slotOf(state));
    }
}

void CountedTlsSlot::freeSlot(DWORD slot)
{
    // Only the calling thread's value can be reached; the system drops those of others with the slot.
    if (void *value = checkedGet(slot)) {
        release_(value);
    }
    checkedFree(slot);
}

void *CountedTlsSlot::get()
{
    void *value = nullptr;
    if (!tryGet(value)) {
        thread_primitives::reportFailure("TlsGetValue");
    }
    return value;
}

/// Takes part for the time of the call, so that nobody gives the slot back under it.
bool CountedTlsSlot::tryGet(void *&value)
{
    value = nullptr;
    if (!enterIfUsed()) {
        return true;
    }
    const bool read = readSlot(slotOf(state_.load()), value);
    const LastErrorKeeper keeper;
    leave();
    return read;
}

void CountedTlsSlot::set(void *value)
{
    const DWORD slot = slotOf(state_.load());
    void *old = checkedGet(slot);
    if (old != nullptr && old != value) {
        release_(old);
    }
    if (!TlsSetValue(slot, value)) {
        thread_primitives::reportFailure("TlsSetValue");
    }
}

} // namespace velmox
