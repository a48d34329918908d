#include "record_queue.h"

#include "filter.h"

struct Batch
{
    LIST_ENTRY link;
    ULONG bytes;
    ULONG records;
    ULONG cursor;    /* offset of the next record */
    ULONG taken;     /* records before the cursor */
    ULONG turnsLeft; /* this turn included */
    BOOLEAN unfiltered;
    ULONG64 timestampStep;
    ULONG64 timestampOffset; /* of the next record */
    UCHAR data[];
};

/* A fast mutex, not a spin lock: a read copies into pageable memory of the caller. */
static FAST_MUTEX lock;
static LIST_ENTRY batches;
static BOOLEAN filterWasSet;
static struct VelmoxTestFault faults[VELMOX_TEST_MAX_FAULTS];
static struct VelmoxTestState counters; /* all of the state but the members of live mode */

void queueInitialize(void)
{
    ExInitializeFastMutex(&lock);
    InitializeListHead(&batches);
}

static void freeBatch(struct Batch *batch)
{
    counters.bytesWaiting -= batch->bytes;
    RemoveEntryList(&batch->link);
    release(batch);
}

void queueReset(void)
{
    ExAcquireFastMutex(&lock);
    while (!IsListEmpty(&batches))
        freeBatch(CONTAINING_RECORD(batches.Flink, struct Batch, link));
    RtlZeroMemory(&counters, sizeof counters);
    filterWasSet = FALSE;
    ExReleaseFastMutex(&lock);
}

static const struct VelmoxRecordHeader *headerAt(const UCHAR *record)
{
    return (const struct VelmoxRecordHeader *)record;
}

static ULONG lengthOf(const struct VelmoxRecordHeader *header)
{
    return VELMOX_RECORD_FIXED_BYTES + header->nameBytes + header->dataBytes;
}

/* The number of records if they fill the bytes exactly, else 0. */
static ULONG countWholeRecords(const UCHAR *records, ULONG bytes)
{
    ULONG count = 0;
    for (ULONG at = 0; at < bytes; ++count) {
        if (bytes - at < VELMOX_RECORD_FIXED_BYTES)
            return 0;
        const struct VelmoxRecordHeader *header = headerAt(records + at);
        const ULONG64 length = (ULONG64)VELMOX_RECORD_FIXED_BYTES + header->nameBytes + header->dataBytes;
        if (length > bytes - at)
            return 0;
        at += (ULONG)length;
    }
    return count;
}

/* The lock is held. */
static struct Batch *addBatch(ULONG bytes, ULONG records, ULONG turns)
{
    struct Batch *batch = NULL;
    if (counters.bytesWaiting + bytes <= VELMOX_TEST_QUEUE_BYTES)
        batch = allocate(sizeof *batch + bytes);
    if (!batch) {
        counters.recordsDropped += (ULONG64)records * turns;
        return NULL;
    }
    RtlZeroMemory(batch, sizeof *batch);
    batch->bytes = bytes;
    batch->records = records;
    batch->turnsLeft = turns;
    InsertTailList(&batches, &batch->link);
    counters.bytesWaiting += bytes;
    counters.recordsWaiting += (ULONG64)records * turns;
    return batch;
}

NTSTATUS queuePush(const struct VelmoxTestPush *push, const UCHAR *records, ULONG bytes)
{
    const ULONG count = countWholeRecords(records, bytes);
    if (count == 0)
        return STATUS_INVALID_PARAMETER;
    const ULONG turns = push->repeat ? push->repeat : 1;
    ExAcquireFastMutex(&lock);
    struct Batch *batch = addBatch(bytes, count, turns);
    if (batch) {
        RtlCopyMemory(batch->data, records, bytes);
        batch->unfiltered = (push->flags & VELMOX_TEST_PUSH_UNFILTERED) != 0;
        batch->timestampStep = push->timestampStep;
    }
    ExReleaseFastMutex(&lock);
    return batch ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

static void copyRecord(UCHAR *out, const struct VelmoxRecordHeader *header, const WCHAR *name,
                       const void *data)
{
    RtlCopyMemory(out, header, sizeof *header);
    out += sizeof *header;
    RtlCopyMemory(out, name, header->nameBytes);
    out += header->nameBytes;
    *out++ = 0;
    *out++ = 0;
    RtlCopyMemory(out, data, header->dataBytes);
}

void queueAddLive(const struct VelmoxRecordHeader *header, const WCHAR *name, const void *data)
{
    ExAcquireFastMutex(&lock);
    struct Batch *batch = filterWasSet ? addBatch(lengthOf(header), 1, 1) : NULL;
    if (batch)
        copyRecord(batch->data, header, name, data);
    ExReleaseFastMutex(&lock);
}

/* Steps over the record at the batch's cursor; frees the batch after its last one. */
static void advance(struct Batch *batch, ULONG length)
{
    --counters.recordsWaiting;
    batch->timestampOffset += batch->timestampStep;
    batch->cursor += length;
    if (++batch->taken < batch->records)
        return;
    batch->cursor = batch->taken = 0;
    if (--batch->turnsLeft == 0)
        freeBatch(batch);
}

static void deliver(UCHAR *out, const UCHAR *record, ULONG length, ULONG64 timestampOffset)
{
    RtlCopyMemory(out, record, length);
    ((struct VelmoxRecordHeader *)out)->timestamp += timestampOffset;
    ++counters.recordsDelivered;
}

/* The lock is held. */
static NTSTATUS takeRecords(UCHAR *buffer, ULONG capacity, ULONG *taken)
{
    while (!IsListEmpty(&batches)) {
        struct Batch *batch = CONTAINING_RECORD(batches.Flink, struct Batch, link);
        const UCHAR *record = batch->data + batch->cursor;
        const ULONG length = lengthOf(headerAt(record));
        if (!batch->unfiltered && !filterLetsThrough(&counters.filter, headerAt(record),
                                                     record + sizeof(struct VelmoxRecordHeader))) {
            advance(batch, length);
            continue;
        }
        if (length > capacity - *taken)
            return *taken ? STATUS_SUCCESS : STATUS_BUFFER_TOO_SMALL;
        deliver(buffer + *taken, record, length, batch->timestampOffset);
        *taken += length;
        advance(batch, length);
    }
    return STATUS_SUCCESS;
}

/* The scripted answer to the next call of a kind, VELMOX_TEST_PASS if there is none. The lock is held. */
static ULONG nextFault(ULONG target)
{
    for (ULONG i = 0; i < counters.faultsWaiting; ++i) {
        if (faults[i].target != target)
            continue;
        const ULONG status = faults[i].status;
        if (--faults[i].count == 0) {
            --counters.faultsWaiting;
            RtlMoveMemory(&faults[i], &faults[i + 1], (counters.faultsWaiting - i) * sizeof faults[0]);
        }
        return status;
    }
    return VELMOX_TEST_PASS;
}

static NTSTATUS answerRead(UCHAR *buffer, ULONG capacity, ULONG *taken)
{
    const ULONG fault = nextFault(VELMOX_TEST_FAULT_READ);
    if (fault != VELMOX_TEST_PASS) {
        ++counters.readsFaulted;
        return (NTSTATUS)fault;
    }
    if (counters.gateClosed || !filterWasSet)
        return STATUS_SUCCESS;
    const NTSTATUS status = takeRecords(buffer, capacity, taken);
    counters.readsTooSmall += status == STATUS_BUFFER_TOO_SMALL;
    return status;
}

static void noteFirst(uint64_t *ticks, BOOLEAN happened)
{
    if (happened && *ticks == 0)
        *ticks = (uint64_t)KeQueryPerformanceCounter(NULL).QuadPart;
}

NTSTATUS queueRead(UCHAR *buffer, ULONG capacity, ULONG *taken)
{
    *taken = 0;
    ExAcquireFastMutex(&lock);
    ++counters.reads;
    noteFirst(&counters.firstReadTicks, TRUE);
    const NTSTATUS status = answerRead(buffer, capacity, taken);
    noteFirst(&counters.firstDeliveryTicks, *taken != 0);
    counters.readsEmpty += status == STATUS_SUCCESS && *taken == 0;
    ExReleaseFastMutex(&lock);
    return status;
}

NTSTATUS queueSetFilter(const struct VelmoxFilterBlock *filter)
{
    ExAcquireFastMutex(&lock);
    ++counters.setFilterCalls;
    const ULONG fault = nextFault(VELMOX_TEST_FAULT_FILTER);
    if (fault == VELMOX_TEST_PASS) {
        counters.filter = *filter;
        filterWasSet = TRUE;
    }
    ExReleaseFastMutex(&lock);
    return fault == VELMOX_TEST_PASS ? STATUS_SUCCESS : (NTSTATUS)fault;
}

NTSTATUS queueAddFault(const struct VelmoxTestFault *fault)
{
    if (fault->count == 0 || fault->target > VELMOX_TEST_FAULT_FILTER)
        return STATUS_INVALID_PARAMETER;
    NTSTATUS status = STATUS_INSUFFICIENT_RESOURCES;
    ExAcquireFastMutex(&lock);
    if (counters.faultsWaiting < VELMOX_TEST_MAX_FAULTS) {
        faults[counters.faultsWaiting++] = *fault;
        status = STATUS_SUCCESS;
    }
    ExReleaseFastMutex(&lock);
    return status;
}

void queueSetGate(BOOLEAN closed)
{
    ExAcquireFastMutex(&lock);
    counters.gateClosed = closed;
    ExReleaseFastMutex(&lock);
}

void queueGetState(struct VelmoxTestState *state)
{
    ExAcquireFastMutex(&lock);
    *state = counters;
    ExReleaseFastMutex(&lock);
}
