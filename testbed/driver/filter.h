#pragma once

#include "kernel.h"

/* Whether a block asks for a record: its class by `events`, and for a registry record its operation by `ops`
   and its path by `hives`. What no mask stands for is never asked for. `name` need not be aligned. */
BOOLEAN filterLetsThrough(const struct VelmoxFilterBlock *filter, const struct VelmoxRecordHeader *record,
                          const UCHAR *name);
