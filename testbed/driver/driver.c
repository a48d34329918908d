/* A stand-in for the monitor's kernel driver: entry, dispatch and unload. Tests, the demo and benchmarks use
   it under Wine. The caller's buffers are trusted: it is no driver for a machine that anyone depends on. */

#include "kernel.h"
#include "live.h"
#include "record_queue.h"

static UNICODE_STRING deviceName = RTL_CONSTANT_STRING(L"\\Device\\VelmoxTrace");
static ULONG hostPid;
static UNICODE_STRING linkName = RTL_CONSTANT_STRING(L"\\DosDevices\\VelmoxTrace");

static NTSTATUS complete(IRP *irp, NTSTATUS status, ULONG bytes)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = bytes;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

static NTSTATUS NTAPI dispatchOpenClose(DEVICE_OBJECT *device, IRP *irp)
{
    (void)device;
    return complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS push(const UCHAR *input, ULONG bytes)
{
    const ULONG head = sizeof(struct VelmoxTestPush);
    return queuePush((const struct VelmoxTestPush *)input, input + head, bytes - head);
}

static NTSTATUS getState(struct VelmoxTestState *state, ULONG *answerBytes)
{
    queueGetState(state);
    liveGetState(state);
    state->hostPid = hostPid;
    *answerBytes = sizeof *state;
    return STATUS_SUCCESS;
}

static NTSTATUS reset(void)
{
    queueReset();
    return STATUS_SUCCESS;
}

static NTSTATUS openGate(const uint32_t *closed)
{
    queueSetGate(*closed != 0);
    return STATUS_SUCCESS;
}

/* The least input and output that a METHOD_BUFFERED code takes. */
struct BufferedCode
{
    ULONG code;
    ULONG inputBytes;
    ULONG outputBytes;
};
static const struct BufferedCode kBufferedCodes[] = {
    {VELMOX_IOCTL_SET_FILTER, sizeof(struct VelmoxFilterBlock), 0},
    {VELMOX_TEST_PUSH, sizeof(struct VelmoxTestPush), 0},
    {VELMOX_TEST_FAULT, sizeof(struct VelmoxTestFault), 0},
    {VELMOX_TEST_GATE, sizeof(uint32_t), 0},
    {VELMOX_TEST_GET_STATE, 0, sizeof(struct VelmoxTestState)},
    {VELMOX_TEST_RESET, 0, 0},
    {VELMOX_TEST_LIVE, sizeof(uint32_t), 0},
};

static NTSTATUS checkSizes(ULONG code, ULONG inputBytes, ULONG outputBytes)
{
    for (ULONG i = 0; i < RTL_NUMBER_OF(kBufferedCodes); ++i) {
        const struct BufferedCode *known = &kBufferedCodes[i];
        if (known->code == code)
            return inputBytes < known->inputBytes || outputBytes < known->outputBytes
                       ? STATUS_INVALID_PARAMETER
                       : STATUS_SUCCESS;
    }
    return STATUS_INVALID_DEVICE_REQUEST;
}

static NTSTATUS serveBuffered(ULONG code, void *buffer, ULONG inputBytes, ULONG *answerBytes)
{
    switch (code) {
    case VELMOX_IOCTL_SET_FILTER:
        return queueSetFilter(buffer);
    case VELMOX_TEST_PUSH:
        return push(buffer, inputBytes);
    case VELMOX_TEST_FAULT:
        return queueAddFault(buffer);
    case VELMOX_TEST_GATE:
        return openGate(buffer);
    case VELMOX_TEST_GET_STATE:
        return getState(buffer, answerBytes);
    case VELMOX_TEST_RESET:
        return reset();
    default:
        return liveStart(*(const uint32_t *)buffer);
    }
}

static NTSTATUS NTAPI dispatchControl(DEVICE_OBJECT *device, IRP *irp)
{
    (void)device;
    const IO_STACK_LOCATION *call = IoGetCurrentIrpStackLocation(irp);
    const ULONG code = call->Parameters.DeviceIoControl.IoControlCode;
    const ULONG inputBytes = call->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG outputBytes = call->Parameters.DeviceIoControl.OutputBufferLength;
    ULONG answerBytes = 0;
    NTSTATUS status;
    if (code == VELMOX_IOCTL_READ_EVENTS) {
        /* METHOD_NEITHER: the caller's own buffer. */
        status = queueRead(irp->UserBuffer, outputBytes, &answerBytes);
    } else {
        status = checkSizes(code, inputBytes, outputBytes);
        if (NT_SUCCESS(status))
            status = serveBuffered(code, irp->AssociatedIrp.SystemBuffer, inputBytes, &answerBytes);
    }
    return complete(irp, status, answerBytes);
}

static void NTAPI unload(DRIVER_OBJECT *driver)
{
    liveStop();
    queueReset();
    IoDeleteSymbolicLink(&linkName);
    IoDeleteDevice(driver->DeviceObject);
}

static NTSTATUS createDevice(DRIVER_OBJECT *driver)
{
    DEVICE_OBJECT *device;
    NTSTATUS status = IoCreateDevice(driver, 0, &deviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
    if (!NT_SUCCESS(status))
        return status;
    /* What a driver that was killed with its process has left behind. */
    IoDeleteSymbolicLink(&linkName);
    status = IoCreateSymbolicLink(&linkName, &deviceName);
    if (!NT_SUCCESS(status))
        IoDeleteDevice(device);
    return status;
}

static BOOLEAN isSwitchedOn(UNICODE_STRING *keyName)
{
    static UNICODE_STRING valueName = RTL_CONSTANT_STRING(L"Live");
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, keyName, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL, NULL);
    HANDLE key;
    if (!NT_SUCCESS(ZwOpenKey(&key, KEY_QUERY_VALUE, &attributes)))
        return FALSE;
    union
    {
        KEY_VALUE_PARTIAL_INFORMATION info;
        UCHAR room[64];
    } value;
    ULONG bytes;
    const NTSTATUS status =
        ZwQueryValueKey(key, &valueName, KeyValuePartialInformation, &value, sizeof value, &bytes);
    ZwClose(key);
    return NT_SUCCESS(status) && value.info.Type == REG_DWORD && *(const ULONG *)value.info.Data != 0;
}

/* The monitor makes the service anew each time it starts, and nothing below the service's key lives through
   that. So live mode has a switch of its own, HKLM\Software\VelmoxTestbed, value Live. */
NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *registryPath);
NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *registryPath)
{
    static UNICODE_STRING switchKey = RTL_CONSTANT_STRING(L"\\Registry\\Machine\\Software\\VelmoxTestbed");
    (void)registryPath;
    queueInitialize();
    hostPid = (ULONG)(ULONG_PTR)PsGetCurrentProcessId();
    driver->MajorFunction[IRP_MJ_CREATE] = dispatchOpenClose;
    driver->MajorFunction[IRP_MJ_CLOSE] = dispatchOpenClose;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = dispatchControl;
    driver->DriverUnload = unload;
    const NTSTATUS status = createDevice(driver);
    if (NT_SUCCESS(status) && isSwitchedOn(&switchKey))
        liveStart(0);
    return status;
}
