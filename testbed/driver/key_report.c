#include "key_report.h"

#include "change_list.h"

void reportData(const struct KeyTree *tree, ULONG operation, LONGLONG time, const UNICODE_STRING *leaf,
                ULONG type, const void *data, ULONG dataBytes)
{
    if (tree->quiet)
        return;
    struct VelmoxRecordHeader header;
    RtlZeroMemory(&header, sizeof header);
    header.recordClass = VELMOX_CLASS_REGISTRY;
    header.operation = operation;
    header.pid = tree->writerPid;
    header.dataType = type;
    header.timestamp = (ULONG64)time;
    header.dataBytes = dataBytes;
    changesAdd(&header, &tree->path, leaf && leaf->Length ? leaf : NULL, data);
}

void reportChange(const struct KeyTree *tree, ULONG operation, LONGLONG time, const UNICODE_STRING *leaf)
{
    reportData(tree, operation, time, leaf, REG_NONE, NULL, 0);
}

BOOLEAN pushPath(struct KeyTree *tree, const UNICODE_STRING *name)
{
    UNICODE_STRING *path = &tree->path;
    if (path->MaximumLength - path->Length < name->Length + (int)sizeof(WCHAR))
        return FALSE;
    WCHAR *end = path->Buffer + path->Length / sizeof(WCHAR);
    *end++ = '\\';
    RtlCopyMemory(end, name->Buffer, name->Length);
    path->Length = (USHORT)(path->Length + name->Length + sizeof(WCHAR));
    return TRUE;
}

void popPath(struct KeyTree *tree, const UNICODE_STRING *name)
{
    tree->path.Length = (USHORT)(tree->path.Length - name->Length - sizeof(WCHAR));
}

LONGLONG lastWriteOf(HANDLE key)
{
    union
    {
        KEY_BASIC_INFORMATION info;
        UCHAR room[sizeof(KEY_BASIC_INFORMATION) + 512];
    } answer;
    ULONG bytes;
    const NTSTATUS status = ZwQueryKey(key, KeyBasicInformation, &answer, sizeof answer, &bytes);
    return NT_SUCCESS(status) ? answer.info.LastWriteTime.QuadPart : 0;
}
