#include "key_tree.h"

#include "key_node.h"
#include "key_report.h"
#include "key_watch.h"

enum
{
    kPathBytes = 65534,
    kFirstScratchBytes = 65536,
    kKeysWorthAWatch = 64,
    kTries = 5,
};

static LONGLONG later(LONGLONG one, LONGLONG other)
{
    return one > other ? one : other;
}

/* Brings the children of a node up to what one enumeration gives. TRUE if the key did not change meanwhile,
   which could hide a child. New children are fresh and at the end; those that are gone keep an old round. */
static BOOLEAN enumerateChildren(struct KeyTree *tree, struct KeyNode *node, HANDLE key)
{
    union
    {
        KEY_BASIC_INFORMATION info;
        UCHAR room[sizeof(KEY_BASIC_INFORMATION) + 1024];
    } answer;
    const LONGLONG before = lastWriteOf(key);
    const ULONG round = ++tree->round;
    const BOOLEAN first = node->children == NULL; /* nothing to find among, in a list that may become long */
    struct KeyNode *expected = node->children;
    struct KeyNode **end = &node->children;
    ULONG bytes;
    for (ULONG i = 0; NT_SUCCESS(ZwEnumerateKey(key, i, KeyBasicInformation, &answer, sizeof answer, &bytes));
         ++i) {
        const KEY_BASIC_INFORMATION *info = &answer.info;
        struct KeyNode *child =
            first ? NULL : findKey(node->children, expected, info->Name, info->NameLength);
        if (!child) {
            child = keyNodeCreate(info->Name, info->NameLength);
            if (!child)
                return FALSE;
            child->fresh = TRUE;
            while (*end)
                end = &(*end)->next;
            *end = child;
        }
        child->round = round;
        child->lastWrite = info->LastWriteTime.QuadPart;
        expected = child->next;
    }
    return lastWriteOf(key) == before;
}

static void reportSubtreeDeleted(struct KeyTree *tree, const struct KeyNode *node, LONGLONG time)
{
    if (!pushPath(tree, &node->name))
        return;
    for (const struct KeyNode *child = node->children; child; child = child->next)
        reportSubtreeDeleted(tree, child, time);
    reportChange(tree, kPostDeleteKey, time, NULL);
    popPath(tree, &node->name);
}

/* Reads the values of a child without reporting them. */
static void readValuesQuietly(struct KeyTree *tree, struct KeyNode *child, HANDLE parent)
{
    HANDLE key;
    if (!NT_SUCCESS(openKey(parent, &child->name, &key)))
        return;
    const BOOLEAN quiet = tree->quiet;
    tree->quiet = TRUE;
    scanValues(tree, child, key, 0);
    tree->quiet = quiet;
    ZwClose(key);
}

static struct KeyNode *findGoneLike(struct KeyNode *node, const struct KeyNode *child, ULONG round)
{
    for (struct KeyNode *gone = node->children; gone; gone = gone->next)
        if (gone->round != round && !gone->fresh && sameValues(gone, child))
            return gone;
    return NULL;
}

/* Renaming writes the time of the key, and under some systems its parent's in the same moment. So a child
   that came no earlier than its parent's last write, and holds what one that has gone held, is that one under
   another name; it takes over all below it. A copy that a program makes before it deletes the original has a
   time before the parent's. */
static void adoptRenamed(struct KeyTree *tree, struct KeyNode *node, struct KeyNode *child, HANDLE key,
                         LONGLONG parentTime, ULONG round)
{
    if (child->lastWrite < parentTime)
        return;
    readValuesQuietly(tree, child, key);
    struct KeyNode *gone = findGoneLike(node, child, round);
    if (!gone) {
        valuesFree(child);
        child->valuesAt = 0;
        return;
    }
    reportData(tree, kPostRenameKey, child->lastWrite, &gone->name, REG_SZ, child->name.Buffer,
               child->name.Length);
    child->children = gone->children;
    child->watch = gone->watch;
    child->fresh = FALSE;
    gone->children = NULL;
    gone->watch = NULL;
    gone->fresh = TRUE; /* nothing more to say of it */
}

static void dropVanishedChildren(struct KeyTree *tree, struct KeyNode *node, LONGLONG time, ULONG round)
{
    for (struct KeyNode **place = &node->children; *place;) {
        struct KeyNode *child = *place;
        if (child->round == round) {
            place = &child->next;
            continue;
        }
        if (!child->fresh)
            reportSubtreeDeleted(tree, child, time);
        *place = child->next;
        keyNodeFree(child);
    }
}

static BOOLEAN anyVanished(const struct KeyNode *node, ULONG round)
{
    for (const struct KeyNode *child = node->children; child; child = child->next)
        if (child->round != round && !child->fresh)
            return TRUE;
    return FALSE;
}

static void adoptAllRenamed(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG time,
                            ULONG round)
{
    for (struct KeyNode *child = node->children; child; child = child->next)
        if (child->fresh && child->round == round)
            adoptRenamed(tree, node, child, key, time, round);
}

static void scanChildren(struct KeyTree *tree, struct KeyNode *node, HANDLE key)
{
    for (int i = 0; i < kTries; ++i) {
        if (!enumerateChildren(tree, node, key))
            continue;
        const ULONG round = tree->round;
        const LONGLONG time = lastWriteOf(key);
        if (anyVanished(node, round))
            adoptAllRenamed(tree, node, key, time, round);
        dropVanishedChildren(tree, node, time, round);
        return;
    }
}

static void scanKey(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG earliest);

/* `earliest` keeps what happened below a new key behind the record of its creation, since of that moment only
   the key's last write time is left. */
static void descend(struct KeyTree *tree, struct KeyNode *child, HANDLE parent, LONGLONG earliest)
{
    if (child->watch && !keyWatchFired(child->watch))
        return;
    HANDLE key;
    if (!NT_SUCCESS(openKey(parent, &child->name, &key)))
        return;
    if (pushPath(tree, &child->name)) {
        if (child->fresh) {
            earliest = later(earliest, child->lastWrite);
            reportChange(tree, kPostCreateKey, earliest, NULL);
            child->fresh = FALSE;
        }
        scanKey(tree, child, key, earliest);
        popPath(tree, &child->name);
    }
    ZwClose(key);
}

static void scanKey(struct KeyTree *tree, struct KeyNode *node, HANDLE key, LONGLONG earliest)
{
    scanChildren(tree, node, key);
    if (node->lastWrite != node->valuesAt)
        scanValues(tree, node, key, later(earliest, node->lastWrite));
    for (struct KeyNode *child = node->children; child; child = child->next)
        descend(tree, child, key, earliest);
}

static void scanRoot(struct KeyTree *tree)
{
    HANDLE key;
    if (!NT_SUCCESS(openKey(NULL, &tree->path, &key)))
        return;
    tree->root->lastWrite = lastWriteOf(key);
    scanKey(tree, tree->root, key, 0);
    ZwClose(key);
}

static ULONG countKeys(const struct KeyNode *node)
{
    ULONG keys = 1;
    for (const struct KeyNode *child = node->children; child; child = child->next)
        keys += countKeys(child);
    return keys;
}

/* Puts a watch on every key with many below it, so that a change leads to a small part of the tree. */
static ULONG placeWatches(struct KeyTree *tree, struct KeyNode *node)
{
    ULONG keys = 1;
    for (struct KeyNode *child = node->children; child; child = child->next) {
        if (!pushPath(tree, &child->name))
            continue;
        const ULONG below = placeWatches(tree, child);
        if (below >= kKeysWorthAWatch)
            child->watch = keyWatchOpen(&tree->path);
        keys += below;
        popPath(tree, &child->name);
    }
    return keys;
}

BOOLEAN keyTreeOpen(struct KeyTree *tree, const UNICODE_STRING *rootPath)
{
    RtlZeroMemory(tree, sizeof *tree);
    tree->root = keyNodeCreate(rootPath->Buffer, rootPath->Length);
    tree->path.Buffer = allocate(kPathBytes);
    tree->path.MaximumLength = kPathBytes;
    tree->scratch = allocate(kFirstScratchBytes);
    tree->scratchBytes = kFirstScratchBytes;
    if (!tree->root || !tree->path.Buffer || !tree->scratch) {
        keyTreeClose(tree);
        return FALSE;
    }
    RtlCopyMemory(tree->path.Buffer, rootPath->Buffer, rootPath->Length);
    tree->path.Length = rootPath->Length;

    tree->quiet = TRUE;
    scanRoot(tree);
    tree->quiet = FALSE;
    placeWatches(tree, tree->root);
    tree->root->watch = keyWatchOpen(&tree->path);
    return TRUE;
}

void keyTreeClose(struct KeyTree *tree)
{
    if (tree->root)
        keyNodeFree(tree->root);
    if (tree->path.Buffer)
        release(tree->path.Buffer);
    if (tree->scratch)
        release(tree->scratch);
    RtlZeroMemory(tree, sizeof *tree);
}

void keyTreeScan(struct KeyTree *tree)
{
    if (!tree->root->watch || keyWatchFired(tree->root->watch))
        scanRoot(tree);
}

ULONG keyTreeCount(const struct KeyTree *tree)
{
    return tree->root ? countKeys(tree->root) : 0;
}
