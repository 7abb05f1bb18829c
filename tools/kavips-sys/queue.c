/* Requests that wait, and the worker that answers them when they are due. A request stands in the list until
 * the worker takes it or its cancel routine does; whoever of the two finds the routine still set is the one that
 * completes it. */
#include "driver.h"

static LIST_ENTRY waiting;
static KSPIN_LOCK waitingLock; /* guards the list and the three numbers */
static ULONG waitingCount;
static ULONG cancelling; /* cancel routines that still run */
static int stopping;
static KEVENT wake;
static PVOID worker; /* the thread object */

/* What a waiting request keeps in its driver context. */
static LONGLONG* dueOf(PIRP irp) {
  return (LONGLONG*)&irp->Tail.Overlay.DriverContext[0];
}

static NTSTATUS failureOf(PIRP irp) {
  return (NTSTATUS)(ULONG_PTR)irp->Tail.Overlay.DriverContext[1];
}

/* Since the start of the system, in units of 100 ns. */
static LONGLONG now100ns(void) {
  LARGE_INTEGER ticksASecond;
  const LONGLONG ticks = KeQueryPerformanceCounter(&ticksASecond).QuadPart;
  return ticks / ticksASecond.QuadPart * 10000000 +
         ticks % ticksASecond.QuadPart * 10000000 / ticksASecond.QuadPart;
}

NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR bytes) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = bytes;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static void leave(PIRP irp) {
  RemoveEntryList(&irp->Tail.Overlay.ListEntry);
  --waitingCount;
}

static void NTAPI cancelled(PDEVICE_OBJECT device, PIRP irp) {
  KIRQL level;
  (void)device;
  IoReleaseCancelSpinLock(irp->CancelIrql);
  KeAcquireSpinLock(&waitingLock, &level);
  leave(irp);
  ++cancelling;
  KeReleaseSpinLock(&waitingLock, level);
  complete(irp, STATUS_CANCELLED, 0);
  KeAcquireSpinLock(&waitingLock, &level);
  --cancelling;
  KeSetEvent(&wake, IO_NO_INCREMENT, FALSE);
  KeReleaseSpinLock(&waitingLock, level);
}

NTSTATUS pend(PIRP irp, LONGLONG delayMs, NTSTATUS failure) {
  KIRQL level;
  int lost;
  *dueOf(irp) = delayMs == KAVIPS_NEVER ? MAXLONGLONG : now100ns() + delayMs * 10000;
  irp->Tail.Overlay.DriverContext[1] = (void*)(ULONG_PTR)(ULONG)failure;
  IoMarkIrpPending(irp);
  KeAcquireSpinLock(&waitingLock, &level);
  InsertTailList(&waiting, &irp->Tail.Overlay.ListEntry);
  ++waitingCount;
  IoSetCancelRoutine(irp, cancelled);
  lost = irp->Cancel && IoSetCancelRoutine(irp, NULL) != NULL;
  if (lost) leave(irp);
  KeReleaseSpinLock(&waitingLock, level);
  if (lost) complete(irp, STATUS_CANCELLED, 0);
  KeSetEvent(&wake, IO_NO_INCREMENT, FALSE);
  return STATUS_PENDING;
}

/* Takes the first request that is due, of one open device or of any (NULL), out of the list for the caller to
 * complete. */
static PIRP takeDue(LONGLONG at, PFILE_OBJECT opened) {
  PIRP taken = NULL;
  KIRQL level;
  KeAcquireSpinLock(&waitingLock, &level);
  for (PLIST_ENTRY entry = waiting.Flink; entry != &waiting && !taken; entry = entry->Flink) {
    PIRP irp = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
    const int wanted = !opened || IoGetCurrentIrpStackLocation(irp)->FileObject == opened;
    if (wanted && *dueOf(irp) <= at && IoSetCancelRoutine(irp, NULL) != NULL) taken = irp;
  }
  if (taken) leave(taken);
  KeReleaseSpinLock(&waitingLock, level);
  return taken;
}

static LONGLONG nextDue(void) {
  LONGLONG next = MAXLONGLONG;
  KIRQL level;
  KeAcquireSpinLock(&waitingLock, &level);
  for (PLIST_ENTRY entry = waiting.Flink; entry != &waiting; entry = entry->Flink) {
    PIRP irp = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
    if (*dueOf(irp) < next) next = *dueOf(irp);
  }
  KeReleaseSpinLock(&waitingLock, level);
  return next;
}

ULONG pendingRequests(void) {
  ULONG count;
  KIRQL level;
  KeAcquireSpinLock(&waitingLock, &level);
  count = waitingCount;
  KeReleaseSpinLock(&waitingLock, level);
  return count;
}

void endAll(PFILE_OBJECT opened, NTSTATUS status) {
  for (PIRP irp = takeDue(MAXLONGLONG, opened); irp; irp = takeDue(MAXLONGLONG, opened))
    complete(irp, status, 0);
}

static void serve(PIRP irp) {
  ULONG_PTR bytes = 0;
  NTSTATUS status = failureOf(irp);
  if (status == STATUS_SUCCESS) status = answer(irp, &bytes);
  complete(irp, status, bytes);
}

static void waitForWork(void) {
  const LONGLONG due = nextDue();
  LARGE_INTEGER relative;
  relative.QuadPart = now100ns() - due;
  if (relative.QuadPart > 0) relative.QuadPart = 0;
  KeWaitForSingleObject(&wake, Executive, KernelMode, FALSE, due == MAXLONGLONG ? NULL : &relative);
}

/* Once the driver is to be unloaded, ends what waits; true when nothing runs or waits any more. */
static int stopped(void) {
  int stop;
  int idle;
  KIRQL level;
  KeAcquireSpinLock(&waitingLock, &level);
  stop = stopping;
  KeReleaseSpinLock(&waitingLock, level);
  if (!stop) return 0;
  endAll(NULL, STATUS_CANCELLED);
  KeAcquireSpinLock(&waitingLock, &level);
  idle = waitingCount == 0 && cancelling == 0;
  KeReleaseSpinLock(&waitingLock, level);
  return idle;
}

static void NTAPI work(void* unused) {
  (void)unused;
  while (!stopped()) {
    for (PIRP irp = takeDue(now100ns(), NULL); irp; irp = takeDue(now100ns(), NULL)) serve(irp);
    waitForWork();
  }
  PsTerminateSystemThread(STATUS_SUCCESS);
}

NTSTATUS startQueue(void) {
  OBJECT_ATTRIBUTES attributes;
  HANDLE thread;
  NTSTATUS status;
  InitializeListHead(&waiting);
  KeInitializeSpinLock(&waitingLock);
  KeInitializeEvent(&wake, SynchronizationEvent, FALSE);
  InitializeObjectAttributes(&attributes, NULL, OBJ_KERNEL_HANDLE, NULL, NULL);
  status = PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, &attributes, NULL, NULL, work, NULL);
  if (!NT_SUCCESS(status)) return status;
  status = ObReferenceObjectByHandle(thread, SYNCHRONIZE, NULL, KernelMode, &worker, NULL);
  ZwClose(thread);
  return status;
}

void stopQueue(void) {
  KIRQL level;
  KeAcquireSpinLock(&waitingLock, &level);
  stopping = 1;
  KeReleaseSpinLock(&waitingLock, level);
  KeSetEvent(&wake, IO_NO_INCREMENT, FALSE);
  KeWaitForSingleObject(worker, Executive, KernelMode, FALSE, NULL);
  ObDereferenceObject(worker);
}
