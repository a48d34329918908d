#pragma once

#include "kernel.h"

/* Live mode: a thread of the driver watches the registry and the processes and puts a record into the queue
   for each change. All calls come from the driver's entry, dispatch and unload routines, which the system
   runs one at a time. */

/* Starts the thread, or gives a running one another writer; returns when it has its first picture. */
NTSTATUS liveStart(ULONG writerPid);

/* Ends the thread and waits for it. */
void liveStop(void);

/* Fills the live* members. */
void liveGetState(struct VelmoxTestState *state);
