#pragma once

#include "key_tree.h"

/* Parts of a picture of the registry. A node owns its name, and a key node all below it. */

/* NULL when memory is out. The key stands alone; the value is the last of its key. */
struct KeyNode *keyNodeCreate(const WCHAR *name, ULONG nameBytes);
struct ValueNode *valueNodeAdd(struct KeyNode *key, const WCHAR *name, ULONG nameBytes);

void valuesFree(struct KeyNode *key);

/* Frees the key and all below it; it is already out of its parent's list. */
void keyNodeFree(struct KeyNode *node);

/* The node of a name, NULL if there is none. The search begins at `expected`, for enumeration brings names in
   the order in which they came last time. */
struct KeyNode *findKey(struct KeyNode *list, struct KeyNode *expected, const WCHAR *name, ULONG nameBytes);
struct ValueNode *findValue(struct ValueNode *list, struct ValueNode *expected, const WCHAR *name,
                            ULONG nameBytes);

BOOLEAN sameValues(const struct KeyNode *one, const struct KeyNode *other);

ULONG64 hashOf(const UCHAR *data, ULONG bytes);
