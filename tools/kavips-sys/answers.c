/* What each of the agent's requests comes to. */
#include "driver.h"

/* Where the output of a request goes. */
struct room {
  uint8_t* bytes;
  ULONG size;
};

static struct room roomOf(PIRP irp) {
  PIO_STACK_LOCATION at = IoGetCurrentIrpStackLocation(irp);
  struct room room = {irp->AssociatedIrp.SystemBuffer,
                      at->Parameters.DeviceIoControl.OutputBufferLength};
  if (METHOD_FROM_CTL_CODE(at->Parameters.DeviceIoControl.IoControlCode) != METHOD_BUFFERED)
    room.bytes =
        irp->MdlAddress ? MmGetSystemAddressForMdlSafe(irp->MdlAddress, NormalPagePriority) : NULL;
  if (!room.bytes) room.size = 0;
  return room;
}

int isQuestion(ULONG code) {
  return code == KAVIPS_QUERY_POLICY || code == KAVIPS_QUERY_REFUSAL ||
         code == KAVIPS_PROCESS_SNAPSHOT || code == KAVIPS_PSET_SNAPSHOT;
}

/* A record of which as much is given as there is room for. */
static NTSTATUS giveRecord(struct room room, const uint8_t* record, ULONG size, ULONG_PTR* bytes) {
  *bytes = room.size < size ? room.size : size;
  RtlCopyMemory(room.bytes, record, *bytes);
  return room.size < size ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

static NTSTATUS policyRecord(struct room room, ULONG_PTR* bytes) {
  uint8_t record[KAVIPS_POLICY_RECORD_BYTES];
  ExAcquireFastMutex(&state->lock);
  kvp_policy_record(&state->model, record);
  ExReleaseFastMutex(&state->lock);
  return giveRecord(room, record, sizeof record, bytes);
}

static NTSTATUS refusalRecord(struct room room, ULONG_PTR* bytes) {
  uint8_t record[KAVIPS_REFUSAL_BYTES];
  ExAcquireFastMutex(&state->lock);
  kvp_refusal_record(&state->model, record);
  ExReleaseFastMutex(&state->lock);
  return giveRecord(room, record, sizeof record, bytes);
}

/* Whole records, as far as there is room. */
struct snapshot {
  struct room room;
  ULONG_PTR bytes;
  int cut;
};

static int append(struct snapshot* out, const void* record, ULONG size) {
  out->cut = out->room.size - out->bytes < size;
  if (out->cut) return 0;
  RtlCopyMemory(out->room.bytes + out->bytes, record, size);
  out->bytes += size;
  return 1;
}

static NTSTATUS endOf(const struct snapshot* out, ULONG_PTR* bytes) {
  *bytes = out->bytes;
  return out->cut ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

static int appendProcess(void* context, const KorvaneProcessSnapshot* process) {
  return append(context, process, sizeof *process);
}

static NTSTATUS processSnapshot(struct room room, ULONG_PTR* bytes) {
  struct snapshot out = {room, 0, 0};
  const NTSTATUS status = eachProcess(appendProcess, &out);
  return NT_SUCCESS(status) ? endOf(&out, bytes) : status;
}

static NTSTATUS setSnapshot(struct room room, ULONG_PTR* bytes) {
  struct snapshot out = {room, 0, 0};
  const struct kvp_policy* policy = &state->model.policy;
  ExAcquireFastMutex(&state->lock);
  for (uint32_t i = 0; state->model.has_policy && i < policy->sets && !out.cut; ++i) {
    KorvanePsetSnapshot record = {i + 1, policy->set[i].rules, {0}};
    RtlCopyMemory(record.name, policy->set[i].name, sizeof policy->set[i].name);
    append(&out, &record, sizeof record);
  }
  ExReleaseFastMutex(&state->lock);
  return endOf(&out, bytes);
}

/* 0 when the policy of that file is in force. */
static int load(const WCHAR* path, size_t units) {
  char* text = NULL;
  size_t size = 0;
  const int error = readFile(path, units, &text, &size);
  int refused = 1;
  ExAcquireFastMutex(&state->lock);
  if (error == 0) {
    const struct kvp_slice whole = {text, size};
    refused = kvp_take_policy(&state->model, &state->control, whole);
  } else {
    char name[512];
    narrow(path, units, name, sizeof name);
    kvp_refuse_file(&state->model, error, name);
  }
  ExReleaseFastMutex(&state->lock);
  if (text) ExFreePool(text);
  return refused;
}

static NTSTATUS loadRequest(const void* input, ULONG size) {
  size_t units;
  int refused;
  ExAcquireFastMutex(&state->lock);
  units = kvp_path_units(&state->model, input, size);
  ExReleaseFastMutex(&state->lock);
  refused = units == 0 || load(input, units) != 0;
  ExAcquireFastMutex(&state->lock);
  ++*(refused ? &state->control.refused : &state->control.loaded);
  ExReleaseFastMutex(&state->lock);
  return refused ? statusOf(13) : STATUS_SUCCESS;
}

static NTSTATUS useBuiltin(void) {
  ExAcquireFastMutex(&state->lock);
  kvp_use_builtin(&state->model);
  ExReleaseFastMutex(&state->lock);
  return STATUS_SUCCESS;
}

static NTSTATUS rollLog(const WCHAR* valueName) {
  size_t units = 0;
  WCHAR* path = readParameter(valueName, &units);
  const NTSTATUS status = path && units > 0 ? touchFile(path, units) : STATUS_OBJECT_PATH_NOT_FOUND;
  if (path) ExFreePool(path);
  return NT_SUCCESS(status) ? status : STATUS_OBJECT_PATH_NOT_FOUND;
}

void loadRecordedPolicy(void) {
  size_t flagUnits = 0;
  size_t fileUnits = 0;
  WCHAR* flag = readParameter(L"UseBuiltin", &flagUnits);
  WCHAR* file = readParameter(L"Filter File", &fileUnits);
  const int builtin = flag && flagUnits > 0 && !(flagUnits == 1 && flag[0] == '0');
  if (!builtin && file && fileUnits > 0) load(file, fileUnits);
  if (flag) ExFreePool(flag);
  if (file) ExFreePool(file);
}

NTSTATUS answer(PIRP irp, ULONG_PTR* bytes) {
  PIO_STACK_LOCATION at = IoGetCurrentIrpStackLocation(irp);
  const struct room room = roomOf(irp);
  switch (at->Parameters.DeviceIoControl.IoControlCode) {
    case KAVIPS_LOAD_POLICY:
      return loadRequest(irp->AssociatedIrp.SystemBuffer,
                         at->Parameters.DeviceIoControl.InputBufferLength);
    case KAVIPS_QUERY_REFUSAL:
      return refusalRecord(room, bytes);
    case KAVIPS_QUERY_POLICY:
      return policyRecord(room, bytes);
    case KAVIPS_USE_BUILTIN:
      return useBuiltin();
    case KAVIPS_ROLL_LOG:
      return rollLog(L"Log File");
    case KAVIPS_ROLL_PROFILE_LOG:
      return rollLog(L"Profile File");
    case KAVIPS_PROCESS_SNAPSHOT:
      return processSnapshot(room, bytes);
    case KAVIPS_PSET_SNAPSHOT:
      return setSnapshot(room, bytes);
    default:
      return STATUS_INVALID_PARAMETER;
  }
}
