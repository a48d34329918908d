#pragma once

#include "kernel.h"

/* A watch over a key and all below it, by the system's own change notification. */
struct KeyWatch
{
    HANDLE key;
    HANDLE event;
    IO_STATUS_BLOCK status; /* the notification's, while it is under way */
    BOOLEAN armed;
};

/* NULL if the watch cannot be made. The key is opened by its full path. */
struct KeyWatch *keyWatchOpen(UNICODE_STRING *path);
void keyWatchClose(struct KeyWatch *watch);

/* Whether something changed since the last call; TRUE the first time. The watch goes on from this moment: a
   change that comes while the caller looks shows in the next call. */
BOOLEAN keyWatchFired(struct KeyWatch *watch);

/* Opens a key for reading, a link as itself. */
NTSTATUS openKey(HANDLE parent, UNICODE_STRING *name, HANDLE *key);
