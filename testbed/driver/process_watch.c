#include "process_watch.h"

#include "change_list.h"

/* The declarations that the kernel's headers lack. Offsets as documented for 64-bit Windows 7. */
enum
{
    kSystemProcessInformation = 5,
    kMaxListBytes = 4 * 1024 * 1024,
    kQueryProcess = 0x400, /* PROCESS_QUERY_INFORMATION */
};

struct SystemProcess
{
    ULONG nextOffset;
    ULONG threads;
    LARGE_INTEGER reserved[3];
    LARGE_INTEGER createTime;
    LARGE_INTEGER userTime;
    LARGE_INTEGER kernelTime;
    UNICODE_STRING imageName;
    LONG priority;
    HANDLE pid;
    HANDLE parentPid;
};
VELMOX_STATIC_ASSERT(offsetof(struct SystemProcess, createTime) == 32);
VELMOX_STATIC_ASSERT(offsetof(struct SystemProcess, pid) == 80);

NTSYSAPI NTSTATUS NTAPI ZwQuerySystemInformation(ULONG informationClass, void *information, ULONG bytes,
                                                 ULONG *needed);

struct Process
{
    struct Process *next;
    ULONG pid;
    ULONG parentPid;
    BOOLEAN seen;
    BOOLEAN imageKnown; /* its record has been made, or is not asked for */
};

static struct Process *processes;

static ULONG numberOf(HANDLE id)
{
    return (ULONG)(ULONG_PTR)id;
}

/* NULL if it cannot be had; freed by the caller. */
static UCHAR *listProcesses(void)
{
    for (ULONG bytes = 65536; bytes <= kMaxListBytes; bytes *= 2) {
        UCHAR *list = allocate(bytes);
        ULONG needed;
        if (!list)
            return NULL;
        const NTSTATUS status = ZwQuerySystemInformation(kSystemProcessInformation, list, bytes, &needed);
        if (NT_SUCCESS(status))
            return list;
        release(list);
        if (status != STATUS_INFO_LENGTH_MISMATCH)
            return NULL;
    }
    return NULL;
}

/* While a process is being made, the list has a time for it that may be anything. A record from the future
   would hold up the reader's clock, so that such a time becomes now. */
static LONGLONG timeUntilNow(LONGLONG time)
{
    LARGE_INTEGER now;
    KeQuerySystemTime(&now);
    return time > 0 && time <= now.QuadPart ? time : now.QuadPart;
}

static struct VelmoxRecordHeader headerOf(ULONG recordClass, const struct Process *process, LONGLONG time)
{
    struct VelmoxRecordHeader header;
    RtlZeroMemory(&header, sizeof header);
    header.recordClass = recordClass;
    header.pid = process->pid;
    header.parentPid = process->parentPid;
    header.timestamp = (ULONG64)timeUntilNow(time);
    return header;
}

static void reportProcess(const struct Process *process, BOOLEAN created, const UNICODE_STRING *account,
                          LONGLONG time)
{
    struct VelmoxRecordHeader header = headerOf(VELMOX_CLASS_PROCESS, process, time);
    header.operation = created ? 1 : 0;
    changesAdd(&header, account, NULL, NULL);
}

/* The account's name cannot be known in the kernel: its SID stands in. Without one the name is empty. */
static void reportCreated(const struct Process *process, HANDLE handle, LONGLONG time)
{
    UCHAR room[256];
    UNICODE_STRING account = {0};
    HANDLE token;
    ULONG bytes;
    if (handle && NT_SUCCESS(ZwOpenProcessTokenEx(handle, TOKEN_QUERY, OBJ_KERNEL_HANDLE, &token))) {
        if (NT_SUCCESS(ZwQueryInformationToken(token, TokenUser, room, sizeof room, &bytes)))
            RtlConvertSidToUnicodeString(&account, ((TOKEN_USER *)room)->User.Sid, TRUE);
        ZwClose(token);
    }
    reportProcess(process, TRUE, &account, time);
    if (account.Buffer)
        RtlFreeUnicodeString(&account);
}

/* Where a drive such as \??\C: leads; empty if nowhere. */
static void resolveDrive(UNICODE_STRING *drive, UNICODE_STRING *device)
{
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, drive, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL, NULL);
    HANDLE link;
    device->Length = 0;
    if (!NT_SUCCESS(ZwOpenSymbolicLinkObject(&link, GENERIC_READ, &attributes)))
        return;
    if (!NT_SUCCESS(ZwQuerySymbolicLinkObject(link, device, NULL)))
        device->Length = 0;
    ZwClose(link);
}

/* Wine answers the question for the device path of an image with one that begins with \??\C:, so the drive is
   resolved here. A path that begins with anything else is taken as it is. */
static void reportImagePath(const struct Process *process, UNICODE_STRING *path, LONGLONG time)
{
    enum
    {
        kDriveUnits = 6, /* \??\C: */
    };
    struct VelmoxRecordHeader header = headerOf(VELMOX_CLASS_IMAGE, process, time);
    WCHAR room[260];
    UNICODE_STRING device = {.MaximumLength = sizeof room, .Buffer = room};
    UNICODE_STRING drive = {.Length = kDriveUnits * sizeof(WCHAR), .Buffer = path->Buffer};
    if (path->Length > drive.Length && path->Buffer[1] == '?' && path->Buffer[kDriveUnits - 1] == ':')
        resolveDrive(&drive, &device);
    if (device.Length == 0) {
        changesAdd(&header, path, NULL, NULL);
        return;
    }
    /* The backslash behind the drive is the one that joins the two. */
    const USHORT tailBytes = (USHORT)(path->Length - drive.Length - sizeof(WCHAR));
    const UNICODE_STRING tail = {.Length = tailBytes, .Buffer = path->Buffer + kDriveUnits + 1};
    changesAdd(&header, &device, &tail, NULL);
}

/* FALSE if the path cannot be had: a process that has only begun may have none yet. */
static BOOLEAN reportImage(const struct Process *process, HANDLE handle, LONGLONG time)
{
    enum
    {
        kPathBytes = 2048,
    };
    UNICODE_STRING *path = allocate(kPathBytes);
    if (!path)
        return FALSE;
    ULONG bytes;
    const NTSTATUS status = ZwQueryInformationProcess(handle, ProcessImageFileName, path, kPathBytes, &bytes);
    const BOOLEAN known = NT_SUCCESS(status) && path->Length > 0;
    if (known)
        reportImagePath(process, path, time);
    release(path);
    return known;
}

static HANDLE openProcess(HANDLE pid)
{
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, NULL, OBJ_KERNEL_HANDLE, NULL, NULL);
    CLIENT_ID id = {.UniqueProcess = pid};
    HANDLE handle;
    return NT_SUCCESS(ZwOpenProcess(&handle, kQueryProcess, &attributes, &id)) ? handle : NULL;
}

/* Reports what is not reported yet of a process that runs. */
static void report(struct Process *process, const struct SystemProcess *found, BOOLEAN created)
{
    HANDLE handle = openProcess(found->pid);
    if (created)
        reportCreated(process, handle, found->createTime.QuadPart);
    if (handle) {
        process->imageKnown = reportImage(process, handle, found->createTime.QuadPart);
        ZwClose(handle);
    }
}

static struct Process *findProcess(ULONG pid, ULONG parentPid)
{
    struct Process *process = processes;
    while (process && (process->pid != pid || process->parentPid != parentPid))
        process = process->next;
    return process;
}

static struct Process *addProcess(const struct SystemProcess *found)
{
    struct Process *process = allocate(sizeof *process);
    if (!process)
        return NULL;
    RtlZeroMemory(process, sizeof *process);
    process->pid = numberOf(found->pid);
    process->parentPid = numberOf(found->parentPid);
    process->next = processes;
    processes = process;
    return process;
}

static void lookAtProcess(const struct SystemProcess *found, BOOLEAN quiet)
{
    struct Process *process = findProcess(numberOf(found->pid), numberOf(found->parentPid));
    const BOOLEAN created = process == NULL;
    if (created)
        process = addProcess(found);
    if (!process)
        return;
    process->seen = TRUE;
    if (quiet)
        process->imageKnown = TRUE;
    else if (!process->imageKnown)
        report(process, found, created);
}

static void lookAtAll(const UCHAR *list, BOOLEAN quiet)
{
    for (;;) {
        const struct SystemProcess *found = (const struct SystemProcess *)list;
        lookAtProcess(found, quiet);
        if (found->nextOffset == 0)
            return;
        list += found->nextOffset;
    }
}

static void dropGone(void)
{
    static const UNICODE_STRING noName = {0};
    LARGE_INTEGER now;
    KeQuerySystemTime(&now);
    for (struct Process **place = &processes; *place;) {
        struct Process *process = *place;
        if (process->seen) {
            process->seen = FALSE;
            place = &process->next;
            continue;
        }
        reportProcess(process, FALSE, &noName, now.QuadPart);
        *place = process->next;
        release(process);
    }
}

static void look(BOOLEAN quiet)
{
    UCHAR *list = listProcesses();
    if (!list)
        return;
    lookAtAll(list, quiet);
    release(list);
    dropGone();
}

void processesInitialize(void)
{
    look(TRUE);
}

void processesScan(void)
{
    look(FALSE);
}

void processesForget(void)
{
    while (processes) {
        struct Process *process = processes;
        processes = process->next;
        release(process);
    }
}
