#include "live.h"

#include "change_list.h"
#include "key_tree.h"
#include "process_watch.h"

static UNICODE_STRING rootPaths[] = {
    RTL_CONSTANT_STRING(L"\\REGISTRY\\MACHINE"),
    RTL_CONSTANT_STRING(L"\\REGISTRY\\User"),
};

static HANDLE thread; /* NULL while live mode is off */
static KEVENT ready;
static KEVENT stop;
static volatile LONG writer;
static volatile LONG keys;

/* The live thread's own. */
static struct KeyTree trees[RTL_NUMBER_OF(rootPaths)];

static void openTrees(void)
{
    for (ULONG i = 0; i < RTL_NUMBER_OF(trees); ++i)
        if (keyTreeOpen(&trees[i], &rootPaths[i]))
            keys += (LONG)keyTreeCount(&trees[i]);
}

static void scan(void)
{
    processesScan();
    for (ULONG i = 0; i < RTL_NUMBER_OF(trees); ++i) {
        trees[i].writerPid = (ULONG)writer;
        if (trees[i].root)
            keyTreeScan(&trees[i]);
    }
    changesDeliver();
}

static void closeTrees(void)
{
    for (ULONG i = 0; i < RTL_NUMBER_OF(trees); ++i)
        keyTreeClose(&trees[i]);
}

static void NTAPI run(void *context)
{
    (void)context;
    LARGE_INTEGER period = {.QuadPart = -1000000}; /* 100 ms */
    changesInitialize();
    processesInitialize();
    openTrees();
    scan(); /* arms the watches, which takes as long as the picture */
    KeSetEvent(&ready, IO_NO_INCREMENT, FALSE);
    while (KeWaitForSingleObject(&stop, Executive, KernelMode, FALSE, &period) == STATUS_TIMEOUT)
        scan();
    closeTrees();
    processesForget();
    changesDrop();
    PsTerminateSystemThread(STATUS_SUCCESS);
}

static ULONG hostProcess(void)
{
    return (ULONG)(ULONG_PTR)PsGetCurrentProcessId();
}

NTSTATUS liveStart(ULONG writerPid)
{
    InterlockedExchange(&writer, (LONG)(writerPid ? writerPid : hostProcess()));
    if (thread)
        return STATUS_SUCCESS;
    KeInitializeEvent(&ready, NotificationEvent, FALSE);
    KeInitializeEvent(&stop, NotificationEvent, FALSE);
    keys = 0;
    const NTSTATUS status = PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, NULL, NULL, NULL, run, NULL);
    if (NT_SUCCESS(status))
        KeWaitForSingleObject(&ready, Executive, KernelMode, FALSE, NULL);
    else
        thread = NULL;
    return status;
}

void liveStop(void)
{
    if (!thread)
        return;
    KeSetEvent(&stop, IO_NO_INCREMENT, FALSE);
    ZwWaitForSingleObject(thread, FALSE, NULL);
    ZwClose(thread);
    thread = NULL;
}

void liveGetState(struct VelmoxTestState *state)
{
    state->live = thread != NULL;
    state->liveKeys = (ULONG)keys;
}
