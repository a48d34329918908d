#include "filter.h"

/* Masks by REG_NOTIFY_CLASS; 0 where no word of the monitor's stands for the operation. */
static const UCHAR kOperationMasks[30] = {
    VELMOX_OP_DELETE, /* 0: key */
    VELMOX_OP_SET,
    VELMOX_OP_DELETE, /* 2: value */
    VELMOX_OP_SET,
    VELMOX_OP_RENAME,
    VELMOX_OP_QUERY, /* 5 to 9 */
    VELMOX_OP_QUERY,
    VELMOX_OP_QUERY,
    VELMOX_OP_QUERY,
    VELMOX_OP_QUERY,
    VELMOX_OP_CREATE, /* 10 */
    VELMOX_OP_CREATE,
    VELMOX_OP_OPEN,
    VELMOX_OP_OPEN,
    VELMOX_OP_CLOSE,
    VELMOX_OP_DELETE, /* 15: the first after-event */
    VELMOX_OP_SET,
    VELMOX_OP_DELETE,
    0,
    VELMOX_OP_RENAME,
    0, /* 20 */
    0,
    0,
    VELMOX_OP_QUERY,
    0,
    VELMOX_OP_CLOSE, /* 25 */
    VELMOX_OP_CREATE,
    VELMOX_OP_CREATE,
    VELMOX_OP_OPEN,
    VELMOX_OP_OPEN,
};

static BOOLEAN beginsWith(const UCHAR *name, ULONG nameBytes, const char *upperCasePrefix)
{
    ULONG at = 0;
    for (; *upperCasePrefix; ++upperCasePrefix, at += sizeof(WCHAR)) {
        if (at + sizeof(WCHAR) > nameBytes)
            return FALSE;
        const WCHAR unit = (WCHAR)(name[at] | name[at + 1] << 8);
        const WCHAR upper = unit >= 'a' && unit <= 'z' ? (WCHAR)(unit - 'a' + 'A') : unit;
        if (upper != (WCHAR)*upperCasePrefix)
            return FALSE;
    }
    /* The next unit ends the path's second component. */
    return at + sizeof(WCHAR) > nameBytes || (name[at] == '\\' && name[at + 1] == 0);
}

static ULONG hiveMask(const UCHAR *name, ULONG nameBytes)
{
    if (beginsWith(name, nameBytes, "\\REGISTRY\\USER"))
        return VELMOX_HIVES_USER;
    if (beginsWith(name, nameBytes, "\\REGISTRY\\MACHINE"))
        return VELMOX_HIVES_MACHINE;
    return 0;
}

static BOOLEAN isKnownClass(ULONG recordClass)
{
    return recordClass == VELMOX_CLASS_REGISTRY || recordClass == VELMOX_CLASS_PROCESS ||
           recordClass == VELMOX_CLASS_IMAGE;
}

BOOLEAN filterLetsThrough(const struct VelmoxFilterBlock *filter, const struct VelmoxRecordHeader *record,
                          const UCHAR *name)
{
    if (!isKnownClass(record->recordClass) || !(record->recordClass & filter->events))
        return FALSE;
    if (record->recordClass != VELMOX_CLASS_REGISTRY)
        return TRUE;
    if (record->operation >= RTL_NUMBER_OF(kOperationMasks) ||
        !(kOperationMasks[record->operation] & filter->ops))
        return FALSE;
    return (hiveMask(name, record->nameBytes) & filter->hives) != 0;
}
