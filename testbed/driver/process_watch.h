#pragma once

#include "kernel.h"

/* The processes that run, by looking at the system's list from time to time. A process that comes and goes
   between two looks is not seen. Used by the live thread alone. */

/* Takes what runs as known. */
void processesInitialize(void);

/* Reports what has come and gone since the last look: for a new process a record of its creation and one of
   its image, for a gone one a record of its exit. */
void processesScan(void);

void processesForget(void);
