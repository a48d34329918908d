#include "live.h"

NTSTATUS liveStart(ULONG writerPid)
{
    (void)writerPid;
    return STATUS_NOT_IMPLEMENTED;
}

void liveStop(void) {}

void liveGetState(struct VelmoxTestState *state)
{
    state->live = 0;
}
