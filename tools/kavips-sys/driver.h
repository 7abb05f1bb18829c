/* kavips.sys, a STAND-IN for the kernel driver: it answers the agent as the driver would and enforces
 * nothing. For tests and demonstrations alone; whoever is logged on may talk to its devices, so it has no
 * place on a machine that matters.
 *
 * This page is what its files share. Its two devices are "\\.\KAVIPS", the agent's, and "\\.\KAVIPS-CONTROL",
 * the operator's; what they understand is in docs/file-formats.md, and the behaviour is the policy model's
 * (stand-in-policy/), which the Linux simulator has too.
 *
 * Threads: a request is taken on its sender's thread. It is answered there if it can be at once; otherwise it
 * waits in the queue, cancellable, until the one worker thread answers it. Memory is non-paged.
 */
#ifndef KORVANE_KAVIPS_SYS_DRIVER_H
#define KORVANE_KAVIPS_SYS_DRIVER_H

#include <ntddk.h>

#include "driver/driver_protocol.h"
#include "stand-in-policy/driver_control.h"
#include "stand-in-policy/policy_model.h"

struct driver_state {
  FAST_MUTEX lock; /* guards model and control; nothing is waited for while it is held */
  struct kvp_driver model;
  struct kvp_control control;
  UNICODE_STRING parameters; /* path of the parameters key */
};

extern struct driver_state* state;

/* queue.c: requests that wait for the worker, and the worker. */

NTSTATUS startQueue(void);
/* Ends the worker and every request that waits; none may come in any more. */
void stopQueue(void);
/* Leaves a request to the worker: `delayMs` from now, or never when that is KAVIPS_NEVER, it is answered or,
 * unless `failure` is success, ended with that. Gives STATUS_PENDING. */
NTSTATUS pend(PIRP irp, LONGLONG delayMs, NTSTATUS failure);
/* Ends every request that waits, or those of one open device. */
void endAll(PFILE_OBJECT opened, NTSTATUS status);
/* How many wait. */
ULONG pendingRequests(void);
NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR bytes);

#define KAVIPS_NEVER (-1)

/* answers.c: what a request of the agent comes to. May read files; at PASSIVE_LEVEL. */
NTSTATUS answer(PIRP irp, ULONG_PTR* bytes);
/* Whether it can be answered on its sender's thread. */
int isQuestion(ULONG code);
/* Starts as at boot: with the recorded policy, or the built-in one. */
void loadRecordedPolicy(void);

/* environment.c: files, registry, processes. */

/* Reads a whole file of at most KVP_MAX_TEXT_BYTES into memory that the caller frees with ExFreePool. Gives
 * 0 or an errno number. */
int readFile(const WCHAR* path, size_t units, char** text, size_t* size);
/* Opens for appending, makes it when it is missing, and closes it. */
NTSTATUS touchFile(const WCHAR* path, size_t units);
/* A text of the parameters key, as long as its value; memory that the caller frees with ExFreePool, or NULL. */
WCHAR* readParameter(const WCHAR* name, size_t* units);
/* Calls `take` for each process until it gives 0. */
typedef int (*process_taker)(void* context, const KorvaneProcessSnapshot* process);
NTSTATUS eachProcess(process_taker take, void* context);
/* UTF-8 with its terminator, cut to the room. */
void narrow(const WCHAR* text, size_t units, char* out, size_t room);
/* The status that user mode sees as this Win32 error number. */
NTSTATUS statusOf(uint32_t error);
void* allocate(size_t size);

#endif
