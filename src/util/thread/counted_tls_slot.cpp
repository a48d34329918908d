#include "util/thread/counted_tls_slot.h"

#include "util/system/last_error_keeper.h"
#include "util/thread/thread_primitives.h"

namespace velmox {

namespace {

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

void CountedTlsSlot::enter()
{
    while (!enterIfUsed()) {
        const DWORD slot = TlsAlloc();
        if (slot == TLS_OUT_OF_INDEXES) {
            thread_primitives::reportFailure("TlsAlloc");
        }
        State none = 0;
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
    if (countOf(state) == 1) {
        freeSlot(slotOf(state));
    }
}

void CountedTlsSlot::freeSlot(DWORD slot)
{
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
