#pragma once

/* The kernel's declarations, and what all files of the driver share. */

#include "test_control.h"

#include <ntifs.h>

#define VELMOX_POOL_TAG 0x786D6C56u /* "Vlmx" in memory */

static inline void *allocate(SIZE_T bytes)
{
    return ExAllocatePoolWithTag(PagedPool, bytes, VELMOX_POOL_TAG);
}

static inline void release(void *memory)
{
    ExFreePoolWithTag(memory, VELMOX_POOL_TAG);
}
