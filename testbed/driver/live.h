#pragma once

#include "kernel.h"

/* Live mode: a thread of the driver watches the registry and the processes and puts a record into the queue
   for each difference between two looks, some 100 ms apart.

   Wine tells a driver neither of registry calls (CmRegisterCallback is not implemented) nor of processes
   (PsSetCreateProcessNotifyRoutine takes the routine and never calls it). What a comparison cannot show:
   - who wrote: the records bear the number given to liveStart;
   - reading, opening and closing, failed operations, a value written with the data it had, and of several
   changes of one key or value between two looks all but their sum;
   - the exact time: a change has its key's last write time, a deletion that of the surviving parent key.
   A renamed key is known by its contents if nothing else happened under its parent after it. The record of a
   value names it behind its key's path, and the record of a renaming has the new name as its data.

   All calls come from the driver's entry, dispatch and unload routines, which Wine runs one at a time. */

/* Starts the thread, or gives the records of a running one another writer; returns when the first picture is
 * taken. */
NTSTATUS liveStart(ULONG writerPid);

/* Ends the thread and waits for it. */
void liveStop(void);

/* Fills the live* members. */
void liveGetState(struct VelmoxTestState *state);
