#pragma once

#include "kernel.h"

/* The records that wait for the monitor, the filter block, the scripted faults and the counters: one set for
   the whole driver, whoever opens or closes the device. Every function may be called from any thread at
   PASSIVE_LEVEL and takes the queue's own lock. */

void queueInitialize(void);
void queueReset(void);

/* Takes a copy of a batch. STATUS_INVALID_PARAMETER unless it is one whole record or more,
   STATUS_INSUFFICIENT_RESOURCES when the queue is full. */
NTSTATUS queuePush(const struct VelmoxTestPush *push, const UCHAR *records, ULONG bytes);

/* Adds one record of live mode; dropped and counted when the queue is full or no filter was ever set. */
void queueAddLive(const struct VelmoxRecordHeader *header, const WCHAR *name, const void *data);

/* Fills the buffer with as many waiting records as fit. Before the first filter block nothing is asked for,
   so nothing is given and all goes on waiting. */
NTSTATUS queueRead(UCHAR *buffer, ULONG capacity, ULONG *taken);

NTSTATUS queueSetFilter(const struct VelmoxFilterBlock *filter);
NTSTATUS queueAddFault(const struct VelmoxTestFault *fault);
void queueSetGate(BOOLEAN closed);

/* Fills what the queue knows; the live* members are left alone. */
void queueGetState(struct VelmoxTestState *state);
