#include "key_watch.h"

NTSTATUS openKey(HANDLE parent, UNICODE_STRING *name, HANDLE *key)
{
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE | OBJ_OPENLINK,
                               parent, NULL);
    return ZwOpenKey(key, KEY_READ, &attributes);
}

static BOOLEAN openHandles(struct KeyWatch *watch, UNICODE_STRING *path)
{
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, NULL, OBJ_KERNEL_HANDLE, NULL, NULL);
    return NT_SUCCESS(openKey(NULL, path, &watch->key)) &&
           NT_SUCCESS(
               ZwCreateEvent(&watch->event, EVENT_ALL_ACCESS, &attributes, SynchronizationEvent, FALSE));
}

struct KeyWatch *keyWatchOpen(UNICODE_STRING *path)
{
    struct KeyWatch *watch = allocate(sizeof *watch);
    if (!watch)
        return NULL;
    RtlZeroMemory(watch, sizeof *watch);
    if (!openHandles(watch, path)) {
        keyWatchClose(watch);
        return NULL;
    }
    return watch;
}

void keyWatchClose(struct KeyWatch *watch)
{
    /* Closing the key ends the notification. */
    if (watch->key)
        ZwClose(watch->key);
    if (watch->event)
        ZwClose(watch->event);
    release(watch);
}

static BOOLEAN isSignalled(struct KeyWatch *watch)
{
    LARGE_INTEGER atOnce = {.QuadPart = 0};
    return ZwWaitForSingleObject(watch->event, FALSE, &atOnce) == STATUS_SUCCESS;
}

BOOLEAN keyWatchFired(struct KeyWatch *watch)
{
    if (watch->armed && !isSignalled(watch))
        return FALSE;
    const NTSTATUS status =
        ZwNotifyChangeKey(watch->key, watch->event, NULL, NULL, &watch->status,
                          REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET, TRUE, NULL, 0, TRUE);
    watch->armed = NT_SUCCESS(status);
    return TRUE;
}
