#pragma once

#include "kernel.h"

/* The changes that one round of live mode found, in the order of their times; equal times keep the order of
   the calls. Used by the live thread alone. */

void changesInitialize(void);

/* Notes a change. `name` is the path so far; `leaf`, if there is one, follows it behind a backslash. Left out
   if there is no memory. */
void changesAdd(const struct VelmoxRecordHeader *header, const UNICODE_STRING *name,
                const UNICODE_STRING *leaf, const void *data);

/* Moves all changes into the queue of records. */
void changesDeliver(void);

/* Forgets all changes. */
void changesDrop(void);
