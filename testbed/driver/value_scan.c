#include "key_node.h"
#include "key_report.h"

enum
{
    kMaxValueBytes = 16 * 1024 * 1024,
    kTries = 5,
};

static BOOLEAN growScratch(struct KeyTree *tree, ULONG bytes)
{
    if (bytes > kMaxValueBytes)
        return FALSE;
    UCHAR *larger = allocate(bytes);
    if (!larger)
        return FALSE;
    release(tree->scratch);
    tree->scratch = larger;
    tree->scratchBytes = bytes;
    return TRUE;
}

/* The value of a number, in the scratch; NULL behind the last one. */
static const KEY_VALUE_FULL_INFORMATION *enumerateValue(struct KeyTree *tree, HANDLE key, ULONG index)
{
    NTSTATUS status;
    ULONG bytes;
    do
        status = ZwEnumerateValueKey(key, index, KeyValueFullInformation, tree->scratch, tree->scratchBytes,
                                     &bytes);
    while (status == STATUS_BUFFER_OVERFLOW && growScratch(tree, bytes));
    return NT_SUCCESS(status) ? (const KEY_VALUE_FULL_INFORMATION *)tree->scratch : NULL;
}

static void lookAtValue(struct KeyTree *tree, struct KeyNode *node, struct ValueNode **expected,
                        const KEY_VALUE_FULL_INFORMATION *info, LONGLONG time)
{
    const UCHAR *data = (const UCHAR *)info + info->DataOffset;
    const ULONG64 hash = hashOf(data, info->DataLength);
    struct ValueNode *value = findValue(node->values, *expected, info->Name, info->NameLength);
    const BOOLEAN known = value != NULL;
    if (!known)
        value = valueNodeAdd(node, info->Name, info->NameLength);
    if (!value)
        return;
    value->round = tree->round;
    *expected = value->next;
    if (known && value->type == info->Type && value->dataBytes == info->DataLength && value->hash == hash)
        return;
    value->type = info->Type;
    value->dataBytes = info->DataLength;
    value->hash = hash;
    reportData(tree, kPostSetValue, time, &value->name, info->Type, data, info->DataLength);
}

/* Whether no change of the key came in between, which could hide a value from the enumeration. */
static BOOLEAN lookAtAllValues(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG time)
{
    const LONGLONG before = lastWriteOf(key);
    ++tree->round;
    struct ValueNode *expected = node->values;
    const KEY_VALUE_FULL_INFORMATION *info;
    for (ULONG i = 0; (info = enumerateValue(tree, key, i)) != NULL; ++i)
        lookAtValue(tree, node, &expected, info, time);
    return lastWriteOf(key) == before;
}

static void dropVanishedValues(struct KeyTree *tree, struct KeyNode *node, LONGLONG time)
{
    for (struct ValueNode **place = &node->values; *place;) {
        struct ValueNode *value = *place;
        if (value->round == tree->round) {
            place = &value->next;
            continue;
        }
        reportChange(tree, kPostDeleteValue, time, &value->name);
        *place = value->next;
        release(value);
    }
}

void scanValues(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG time)
{
    for (int i = 0; i < kTries; ++i) {
        if (lookAtAllValues(tree, node, key, time)) {
            dropVanishedValues(tree, node, time);
            node->valuesAt = node->lastWrite;
            return;
        }
    }
}
