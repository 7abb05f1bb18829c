/* Loading, unloading, and which request goes where. */
#include "driver.h"

static UNICODE_STRING deviceName = RTL_CONSTANT_STRING(L"\\Device\\KAVIPS");
static UNICODE_STRING linkName = RTL_CONSTANT_STRING(L"\\DosDevices\\KAVIPS");
static UNICODE_STRING controlName = RTL_CONSTANT_STRING(L"\\Device\\KAVIPS-CONTROL");
static UNICODE_STRING controlLink = RTL_CONSTANT_STRING(L"\\DosDevices\\KAVIPS-CONTROL");

static PDEVICE_OBJECT agentDevice;
static PDEVICE_OBJECT controlDevice;

struct driver_state* state;

static NTSTATUS agentRequest(PIRP irp, ULONG code) {
  struct kvp_control now;
  ULONG_PTR bytes = 0;
  ExAcquireFastMutex(&state->lock);
  ++state->control.requests;
  now = state->control;
  ExReleaseFastMutex(&state->lock);
  if (now.vanished) return complete(irp, STATUS_DEVICE_NOT_CONNECTED, 0);
  switch (now.mode) {
    case KVP_STALL:
      return pend(irp, KAVIPS_NEVER, STATUS_SUCCESS);
    case KVP_DELAY:
      return pend(irp, now.delay_ms, STATUS_SUCCESS);
    case KVP_LATE_ERROR:
      return pend(irp, now.delay_ms, statusOf(now.error));
    case KVP_FAIL:
      return complete(irp, statusOf(now.error), 0);
    case KVP_NORMAL:
      break;
  }
  if (isQuestion(code) && answer(irp, &bytes) == STATUS_SUCCESS)
    return complete(irp, STATUS_SUCCESS, bytes);
  return pend(irp, 0, STATUS_SUCCESS);
}

/* The name comes and goes with what the operator wants; what waits on an open device goes with it. */
static NTSTATUS followPresence(int wasThere, int isThere) {
  if (wasThere == isThere) return STATUS_SUCCESS;
  if (isThere) return IoCreateSymbolicLink(&linkName, &deviceName);
  endAll(NULL, STATUS_DEVICE_NOT_CONNECTED);
  return IoDeleteSymbolicLink(&linkName);
}

/* Input and output share one buffer, so the command is taken before the state is written. */
static NTSTATUS controlRequest(PIRP irp, ULONG code) {
  PIO_STACK_LOCATION at = IoGetCurrentIrpStackLocation(irp);
  const ULONG room = at->Parameters.DeviceIoControl.OutputBufferLength;
  struct kvp_slice command = {irp->AssociatedIrp.SystemBuffer,
                              at->Parameters.DeviceIoControl.InputBufferLength};
  int wasThere;
  int isThere;
  int wrong;
  size_t size;
  NTSTATUS status;
  if (code != KVP_COMMAND_CODE || command.size == 0 || room == 0)
    return complete(irp, STATUS_INVALID_PARAMETER, 0);
  ExAcquireFastMutex(&state->lock);
  wasThere = !state->control.vanished;
  wrong = kvp_obey(&state->control, command);
  isThere = !state->control.vanished;
  ExReleaseFastMutex(&state->lock);
  if (wrong) return complete(irp, STATUS_INVALID_PARAMETER, 0);
  status = followPresence(wasThere, isThere);
  if (!NT_SUCCESS(status)) return complete(irp, status, 0);
  ExAcquireFastMutex(&state->lock);
  state->control.pending = pendingRequests();
  size = kvp_state(&state->control, &state->model, irp->AssociatedIrp.SystemBuffer, room);
  ExReleaseFastMutex(&state->lock);
  return complete(irp, STATUS_SUCCESS, size + 1);
}

static NTSTATUS NTAPI control(PDEVICE_OBJECT device, PIRP irp) {
  const ULONG code = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode;
  return device == controlDevice ? controlRequest(irp, code) : agentRequest(irp, code);
}

static NTSTATUS NTAPI openOrClose(PDEVICE_OBJECT device, PIRP irp) {
  (void)device;
  return complete(irp, STATUS_SUCCESS, 0);
}

/* The last handle of an open device has gone. */
static NTSTATUS NTAPI cleanUp(PDEVICE_OBJECT device, PIRP irp) {
  (void)device;
  endAll(IoGetCurrentIrpStackLocation(irp)->FileObject, STATUS_CANCELLED);
  return complete(irp, STATUS_SUCCESS, 0);
}

static void removeDevice(PDEVICE_OBJECT* device, PUNICODE_STRING link) {
  IoDeleteSymbolicLink(link);
  if (*device) IoDeleteDevice(*device);
  *device = NULL;
}

static NTSTATUS makeDevice(PDRIVER_OBJECT driver, PUNICODE_STRING name, PUNICODE_STRING link,
                           PDEVICE_OBJECT* device) {
  NTSTATUS status =
      IoCreateDevice(driver, 0, name, FILE_DEVICE_UNKNOWN, FILE_DEVICE_SECURE_OPEN, FALSE, device);
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateSymbolicLink(link, name);
  if (NT_SUCCESS(status)) (*device)->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  return status;
}

static void freeState(void) {
  if (state && state->parameters.Buffer) ExFreePool(state->parameters.Buffer);
  if (state) ExFreePool(state);
  state = NULL;
}

static void NTAPI unload(PDRIVER_OBJECT driver) {
  (void)driver;
  stopQueue();
  removeDevice(&agentDevice, &linkName);
  removeDevice(&controlDevice, &controlLink);
  freeState();
}

static NTSTATUS makeState(PUNICODE_STRING key) {
  static UNICODE_STRING subkey = RTL_CONSTANT_STRING(L"\\Parameters");
  const USHORT size = (USHORT)(key->Length + subkey.Length);
  state = allocate(sizeof *state);
  if (!state) return STATUS_INSUFFICIENT_RESOURCES;
  ExInitializeFastMutex(&state->lock);
  state->control.prevention = KVP_PREVENTION_ELSEWHERE;
  state->parameters.Buffer = allocate(size);
  if (!state->parameters.Buffer) return STATUS_INSUFFICIENT_RESOURCES;
  state->parameters.MaximumLength = size;
  RtlCopyUnicodeString(&state->parameters, key);
  return RtlAppendUnicodeStringToString(&state->parameters, &subkey);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING key) {
  NTSTATUS status = makeState(key);
  if (NT_SUCCESS(status)) loadRecordedPolicy();
  if (NT_SUCCESS(status)) status = startQueue();
  if (!NT_SUCCESS(status)) {
    freeState();
    return status;
  }
  driver->MajorFunction[IRP_MJ_CREATE] = openOrClose;
  driver->MajorFunction[IRP_MJ_CLEANUP] = cleanUp;
  driver->MajorFunction[IRP_MJ_CLOSE] = openOrClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
  driver->DriverUnload = unload;
  status = makeDevice(driver, &controlName, &controlLink, &controlDevice);
  if (NT_SUCCESS(status)) status = makeDevice(driver, &deviceName, &linkName, &agentDevice);
  if (!NT_SUCCESS(status)) unload(driver);
  return status;
}
