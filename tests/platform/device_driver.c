/* A kernel driver for the device tests: it does to a request what its control code says. Its device is named
 * like its service, so that several can be loaded at once. Never shipped. */
#include <ntddk.h>

#include "tests/platform/device_codes.h"

enum { kLateMs = 20 };

static WCHAR linkText[128];
static UNICODE_STRING linkName;

static NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR bytes) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = bytes;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static ULONG_PTR echoed(PIO_STACK_LOCATION at) {
  ULONG in = at->Parameters.DeviceIoControl.InputBufferLength;
  ULONG out = at->Parameters.DeviceIoControl.OutputBufferLength;
  return in < out ? in : out;
}

/* On a thread of its own, a while after the request was taken. */
static void NTAPI finishLate(void* context) {
  PIRP irp = context;
  PIO_STACK_LOCATION at = IoGetCurrentIrpStackLocation(irp);
  ULONG size = at->Parameters.DeviceIoControl.OutputBufferLength;
  LARGE_INTEGER delay;
  delay.QuadPart = -10000LL * kLateMs;
  KeDelayExecutionThread(KernelMode, FALSE, &delay);
  switch (at->Parameters.DeviceIoControl.IoControlCode) {
    case kLateEcho:
      complete(irp, STATUS_SUCCESS, echoed(at));
      break;
    case kLateMoreData:
      for (ULONG i = 0; i < size; ++i) ((char*)irp->AssociatedIrp.SystemBuffer)[i] = 'm';
      complete(irp, STATUS_BUFFER_OVERFLOW, size);
      break;
    default:
      complete(irp, STATUS_UNSUCCESSFUL, 0);
  }
  PsTerminateSystemThread(STATUS_SUCCESS);
}

static void NTAPI cancelled(PDEVICE_OBJECT device, PIRP irp) {
  (void)device;
  IoReleaseCancelSpinLock(irp->CancelIrql);
  complete(irp, STATUS_CANCELLED, 0);
}

static NTSTATUS pendUntilCancelled(PIRP irp) {
  IoMarkIrpPending(irp);
  IoSetCancelRoutine(irp, cancelled);
  return STATUS_PENDING;
}

static NTSTATUS pendAWhile(PIRP irp) {
  HANDLE thread;
  IoMarkIrpPending(irp);
  if (PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, NULL, NULL, NULL, finishLate, irp) < 0)
    complete(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
  else
    ZwClose(thread);
  return STATUS_PENDING;
}

static NTSTATUS NTAPI control(PDEVICE_OBJECT device, PIRP irp) {
  PIO_STACK_LOCATION at = IoGetCurrentIrpStackLocation(irp);
  (void)device;
  switch (at->Parameters.DeviceIoControl.IoControlCode) {
    case kEcho:
      return complete(irp, STATUS_SUCCESS, echoed(at));
    case kLateEcho:
    case kLateError:
    case kLateMoreData:
      return pendAWhile(irp);
    case kNever:
      return pendUntilCancelled(irp);
    default:
      return complete(irp, STATUS_INVALID_PARAMETER, 0);
  }
}

static NTSTATUS NTAPI openOrClose(PDEVICE_OBJECT device, PIRP irp) {
  (void)device;
  return complete(irp, STATUS_SUCCESS, 0);
}

static void NTAPI unload(PDRIVER_OBJECT driver) {
  IoDeleteSymbolicLink(&linkName);
  IoDeleteDevice(driver->DeviceObject);
}

/* "\\Device\\NAME" or "\\DosDevices\\NAME" of the service key's last part. */
static int nameAfter(PUNICODE_STRING key, const WCHAR* folder, WCHAR* text, ULONG room,
                     PUNICODE_STRING out) {
  USHORT from = key->Length / sizeof(WCHAR);
  ULONG size = 0;
  while (from > 0 && key->Buffer[from - 1] != '\\') --from;
  while (*folder && size < room) text[size++] = *folder++;
  while (from < key->Length / sizeof(WCHAR) && size < room) text[size++] = key->Buffer[from++];
  out->Buffer = text;
  out->Length = (USHORT)(size * sizeof(WCHAR));
  out->MaximumLength = out->Length;
  return size < room;
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING key) {
  WCHAR deviceText[128];
  UNICODE_STRING deviceName;
  PDEVICE_OBJECT device;
  NTSTATUS status;
  if (!nameAfter(key, L"\\Device\\", deviceText, 128, &deviceName) ||
      !nameAfter(key, L"\\DosDevices\\", linkText, 128, &linkName))
    return STATUS_INVALID_PARAMETER;
  status = IoCreateDevice(driver, 0, &deviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
  if (status < 0) return status;
  status = IoCreateSymbolicLink(&linkName, &deviceName);
  if (status < 0) {
    IoDeleteDevice(device);
    return status;
  }
  driver->MajorFunction[IRP_MJ_CREATE] = openOrClose;
  driver->MajorFunction[IRP_MJ_CLOSE] = openOrClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
  driver->DriverUnload = unload;
  return STATUS_SUCCESS;
}
