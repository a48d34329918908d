#pragma once

#include "kernel.h"

struct KeyWatch;

/* A picture of a registry tree: what each key held when it was last looked at, and the differences that a
   later look finds. Used by the live thread alone. */

struct ValueNode
{
    struct ValueNode *next;
    ULONG type;
    ULONG dataBytes;
    ULONG64 hash; /* of the data */
    ULONG round;  /* of the enumeration that saw it last */
    UNICODE_STRING name;
};

struct KeyNode
{
    struct KeyNode *next; /* sibling */
    struct KeyNode *children;
    struct ValueNode *values;
    struct KeyWatch *watch; /* over this key and all below; NULL on small subtrees */
    LONGLONG lastWrite;
    LONGLONG valuesAt; /* the last write time at which the values were looked at */
    ULONG round;       /* of the enumeration that saw it last */
    BOOLEAN fresh;     /* not reported yet */
    UNICODE_STRING name;
};

struct KeyTree
{
    struct KeyNode *root;
    ULONG writerPid; /* for the records */
    BOOLEAN quiet;   /* nothing is reported */

    /* Of the look under way. */
    ULONG round;
    UNICODE_STRING path; /* of the key at hand */
    UCHAR *scratch;      /* for one enumerated value */
    ULONG scratchBytes;
};

/* Pictures the tree below a root such as \REGISTRY\MACHINE. FALSE if memory is out. */
BOOLEAN keyTreeOpen(struct KeyTree *tree, const UNICODE_STRING *rootPath);
void keyTreeClose(struct KeyTree *tree);

/* Looks at whatever changed since the last look, and adds the differences to the list of changes. */
void keyTreeScan(struct KeyTree *tree);

ULONG keyTreeCount(const struct KeyTree *tree);
