#pragma once

/* What crosses between the monitor and its driver, as the driver's side writes it down: little-endian,
   packed, and not shared with the monitor's own sources, so that a slip in one of the two shows. C and C++.
 */

#include <stdint.h>

#ifdef __cplusplus
#include <cstddef>
#define VELMOX_STATIC_ASSERT(condition) static_assert(condition, #condition)
#else
#include <stddef.h>
#define VELMOX_STATIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif

#define VELMOX_IOCTL_READ_EVENTS 0x222007u /* METHOD_NEITHER, any access */
#define VELMOX_IOCTL_SET_FILTER 0x22200Cu  /* METHOD_BUFFERED, any access */

/* Record classes, and their bits in VelmoxFilterBlock::events. */
#define VELMOX_CLASS_REGISTRY 1u
#define VELMOX_CLASS_PROCESS 2u
#define VELMOX_CLASS_IMAGE 4u

/* Bits of VelmoxFilterBlock::ops. */
#define VELMOX_OP_CREATE 1u
#define VELMOX_OP_QUERY 2u
#define VELMOX_OP_SET 4u
#define VELMOX_OP_DELETE 8u
#define VELMOX_OP_OPEN 16u
#define VELMOX_OP_CLOSE 32u
#define VELMOX_OP_RENAME 64u

/* Bits of VelmoxFilterBlock::hives. */
#define VELMOX_HIVES_USER 1u
#define VELMOX_HIVES_MACHINE 2u

/* The block that VELMOX_IOCTL_SET_FILTER carries. */
struct VelmoxFilterBlock
{
    uint32_t events;
    uint32_t status; /* kept and given back; the stand-in driver does not select by it */
    uint32_t ops;
    uint32_t hives;
};
VELMOX_STATIC_ASSERT(sizeof(struct VelmoxFilterBlock) == 16);

/* The fixed part of a record. After it: the name (UTF-16), a 16-bit zero, the data. */
#pragma pack(push, 1)
struct VelmoxRecordHeader
{
    uint32_t recordClass;
    uint32_t reserved;
    uint32_t operation;
    uint32_t status;
    uint32_t pid;
    uint32_t parentPid;
    uint32_t dataType;
    uint64_t timestamp;
    uint32_t nameBytes;
    uint32_t dataBytes;
};
#pragma pack(pop)
VELMOX_STATIC_ASSERT(sizeof(struct VelmoxRecordHeader) == 44);
VELMOX_STATIC_ASSERT(offsetof(struct VelmoxRecordHeader, timestamp) == 28);
VELMOX_STATIC_ASSERT(offsetof(struct VelmoxRecordHeader, dataBytes) == 40);

/* Bytes of a record beside its name and data: the fixed part and the zero behind the name. */
#define VELMOX_RECORD_FIXED_BYTES 46u
