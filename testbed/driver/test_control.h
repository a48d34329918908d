#pragma once

/* The stand-in driver's own control codes, for tests, the demo and benchmarks. All are METHOD_BUFFERED and
   need no access; they go through the same device as the monitor's. C and C++. */

#include "trace_wire.h"

#define VELMOX_TEST_CODE(function) (0x220000u | ((0x900u + (function)) << 2))

#define VELMOX_TEST_PUSH VELMOX_TEST_CODE(0)  /* in: VelmoxTestPush, then whole records */
#define VELMOX_TEST_FAULT VELMOX_TEST_CODE(1) /* in: VelmoxTestFault */
#define VELMOX_TEST_GATE VELMOX_TEST_CODE(2)  /* in: uint32_t, 0 opens the gate, anything else closes it */
#define VELMOX_TEST_GET_STATE VELMOX_TEST_CODE(3) /* out: VelmoxTestState */
#define VELMOX_TEST_RESET                                                                                    \
    VELMOX_TEST_CODE(4) /* back to the state after a start; live mode stays as it is                         \
                         */
/* Starts live mode. In: uint32_t, the process number for live registry records, since who wrote cannot be
   known; 0 stands for the process in which the driver runs. Returns when the first picture of the registry
   has been taken. */
#define VELMOX_TEST_LIVE VELMOX_TEST_CODE(5)

/* Bytes of records that may wait. A push beyond that fails with STATUS_INSUFFICIENT_RESOURCES (error 1450),
   and a live record beyond it is dropped; both count in recordsDropped. */
#define VELMOX_TEST_QUEUE_BYTES (32u * 1024u * 1024u)

/* Whatever the filter block says, deliver these: the way to feed classes and operations that no block can ask
 * for. */
#define VELMOX_TEST_PUSH_UNFILTERED 1u

/* A batch of records. Handed out `repeat` times over (0 counts as once), which makes a flood for benchmarks
   out of a few records without the memory. `timestampStep` is added to the time of each record more than to
   the one before it. */
struct VelmoxTestPush
{
    uint32_t flags;
    uint32_t repeat;
    uint64_t timestampStep;
};
VELMOX_STATIC_ASSERT(sizeof(struct VelmoxTestPush) == 16);

#define VELMOX_TEST_FAULT_READ                                                                               \
    0u /* the next `count` reads end with `status` and no bytes; nothing is lost                             \
        */
#define VELMOX_TEST_FAULT_FILTER 1u /* the same for setting the filter, which then keeps its old block */

/* Up to 16 of them wait in line, each for its own kind of call. With status 0 a read answers with zero bytes;
   with VELMOX_TEST_PASS the call is served as usual, so that a fault can come in the middle. */
#define VELMOX_TEST_PASS 0xFFFFFFFFu
#define VELMOX_TEST_MAX_FAULTS 16u
struct VelmoxTestFault
{
    uint32_t target;
    uint32_t status;
    uint32_t count;
};
VELMOX_STATIC_ASSERT(sizeof(struct VelmoxTestFault) == 12);

struct VelmoxTestState
{
    struct VelmoxFilterBlock filter; /* the last one accepted, zero before the first */
    uint64_t setFilterCalls;         /* these five count calls, failed ones and faults too */
    uint64_t reads;
    uint64_t readsEmpty;
    uint64_t readsTooSmall;
    uint64_t readsFaulted;
    uint64_t recordsDelivered;
    uint64_t recordsDropped;
    uint64_t recordsWaiting; /* repeats counted */
    uint64_t bytesWaiting;   /* repeats not counted: the memory in use */
    uint32_t liveKeys;
    uint32_t faultsWaiting;
    uint32_t live;
    uint32_t gateClosed;
    uint32_t hostPid; /* the process in which the driver runs */
    uint32_t reserved;
    uint64_t firstReadTicks;     /* QueryPerformanceCounter at the first read since the reset, 0 before it */
    uint64_t firstDeliveryTicks; /* the same for the first read that found records */
};
VELMOX_STATIC_ASSERT(sizeof(struct VelmoxTestState) == 128);
