#include "key_node.h"

#include "key_watch.h"

static UNICODE_STRING copiedName(WCHAR *room, const WCHAR *name, ULONG nameBytes)
{
    RtlCopyMemory(room, name, nameBytes);
    const UNICODE_STRING text = {
        .Length = (USHORT)nameBytes, .MaximumLength = (USHORT)nameBytes, .Buffer = room};
    return text;
}

struct KeyNode *keyNodeCreate(const WCHAR *name, ULONG nameBytes)
{
    struct KeyNode *node = allocate(sizeof *node + nameBytes);
    if (!node)
        return NULL;
    RtlZeroMemory(node, sizeof *node);
    node->name = copiedName((WCHAR *)(node + 1), name, nameBytes);
    return node;
}

struct ValueNode *valueNodeAdd(struct KeyNode *key, const WCHAR *name, ULONG nameBytes)
{
    struct ValueNode *node = allocate(sizeof *node + nameBytes);
    if (!node)
        return NULL;
    RtlZeroMemory(node, sizeof *node);
    node->name = copiedName((WCHAR *)(node + 1), name, nameBytes);
    struct ValueNode **end = &key->values;
    while (*end)
        end = &(*end)->next;
    *end = node;
    return node;
}

void valuesFree(struct KeyNode *key)
{
    for (struct ValueNode *value = key->values, *next; value; value = next) {
        next = value->next;
        release(value);
    }
    key->values = NULL;
}

void keyNodeFree(struct KeyNode *node)
{
    valuesFree(node);
    for (struct KeyNode *child = node->children, *next; child; child = next) {
        next = child->next;
        keyNodeFree(child);
    }
    if (node->watch)
        keyWatchClose(node->watch);
    release(node);
}

static BOOLEAN isNamed(const UNICODE_STRING *one, const WCHAR *name, ULONG nameBytes)
{
    return one->Length == nameBytes && RtlCompareMemory(one->Buffer, name, nameBytes) == nameBytes;
}

struct KeyNode *findKey(struct KeyNode *list, struct KeyNode *expected, const WCHAR *name, ULONG nameBytes)
{
    if (expected && isNamed(&expected->name, name, nameBytes))
        return expected;
    while (list && !isNamed(&list->name, name, nameBytes))
        list = list->next;
    return list;
}

struct ValueNode *findValue(struct ValueNode *list, struct ValueNode *expected, const WCHAR *name,
                            ULONG nameBytes)
{
    if (expected && isNamed(&expected->name, name, nameBytes))
        return expected;
    while (list && !isNamed(&list->name, name, nameBytes))
        list = list->next;
    return list;
}

static ULONG countValues(const struct KeyNode *key)
{
    ULONG count = 0;
    for (const struct ValueNode *value = key->values; value; value = value->next)
        ++count;
    return count;
}

BOOLEAN sameValues(const struct KeyNode *one, const struct KeyNode *other)
{
    for (const struct ValueNode *left = one->values; left; left = left->next) {
        const struct ValueNode *right = findValue(other->values, NULL, left->name.Buffer, left->name.Length);
        if (!right || left->type != right->type || left->dataBytes != right->dataBytes ||
            left->hash != right->hash)
            return FALSE;
    }
    return countValues(one) == countValues(other);
}

/* FNV-1a. */
ULONG64 hashOf(const UCHAR *data, ULONG bytes)
{
    ULONG64 hash = 0xCBF29CE484222325u;
    for (ULONG i = 0; i < bytes; ++i)
        hash = (hash ^ data[i]) * 0x100000001B3u;
    return hash;
}
