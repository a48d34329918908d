#include "change_list.h"

#include "record_queue.h"

struct Change
{
    LIST_ENTRY link;
    struct VelmoxRecordHeader header;
    UCHAR *data; /* behind the name */
    WCHAR name[];
};

static LIST_ENTRY changes;

void changesInitialize(void)
{
    InitializeListHead(&changes);
}

/* From the end, for most changes come in order. */
static void insertByTime(struct Change *change)
{
    LIST_ENTRY *before = changes.Blink;
    while (before != &changes &&
           CONTAINING_RECORD(before, struct Change, link)->header.timestamp > change->header.timestamp)
        before = before->Blink;
    InsertHeadList(before, &change->link);
}

static void joinName(WCHAR *out, const UNICODE_STRING *name, const UNICODE_STRING *leaf)
{
    RtlCopyMemory(out, name->Buffer, name->Length);
    if (!leaf)
        return;
    out += name->Length / sizeof(WCHAR);
    *out++ = '\\';
    RtlCopyMemory(out, leaf->Buffer, leaf->Length);
}

void changesAdd(const struct VelmoxRecordHeader *header, const UNICODE_STRING *name,
                const UNICODE_STRING *leaf, const void *data)
{
    const ULONG nameBytes = name->Length + (leaf ? leaf->Length + (ULONG)sizeof(WCHAR) : 0);
    struct Change *change = allocate(sizeof *change + nameBytes + header->dataBytes);
    if (!change)
        return;
    change->header = *header;
    change->header.nameBytes = nameBytes;
    joinName(change->name, name, leaf);
    change->data = (UCHAR *)change->name + nameBytes;
    RtlCopyMemory(change->data, data, header->dataBytes);
    insertByTime(change);
}

static struct Change *takeFirst(void)
{
    return IsListEmpty(&changes) ? NULL : CONTAINING_RECORD(RemoveHeadList(&changes), struct Change, link);
}

void changesDeliver(void)
{
    for (struct Change *change; (change = takeFirst()) != NULL; release(change))
        queueAddLive(&change->header, change->name, change->data);
}

void changesDrop(void)
{
    for (struct Change *change; (change = takeFirst()) != NULL;)
        release(change);
}
