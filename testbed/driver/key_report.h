#pragma once

#include "key_tree.h"

/* After-events by REG_NOTIFY_CLASS. */
enum
{
    kPostDeleteKey = 15,
    kPostSetValue = 16,
    kPostDeleteValue = 17,
    kPostRenameKey = 19,
    kPostCreateKey = 27,
};

/* Reports a change at the tree's path, or at `leaf` below it. A quiet tree reports nothing. */
void reportChange(const struct KeyTree *tree, ULONG operation, LONGLONG time, const UNICODE_STRING *leaf);
void reportData(const struct KeyTree *tree, ULONG operation, LONGLONG time, const UNICODE_STRING *leaf,
                ULONG type, const void *data, ULONG dataBytes);

/* Extends the tree's path by a name, if there is room; popPath takes it off again. */
BOOLEAN pushPath(struct KeyTree *tree, const UNICODE_STRING *name);
void popPath(struct KeyTree *tree, const UNICODE_STRING *name);

/* Looks at the values of the open key at the tree's path and reports the differences at the given time. */
void scanValues(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG time);

/* The key's last write time, 0 if it is gone. */
LONGLONG lastWriteOf(HANDLE key);
