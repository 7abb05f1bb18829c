/* What the driver needs of the system: files, its parameters, the processes. */
#include "driver.h"

enum { POOL_TAG = 0x5350414B /* "KAPS" in memory */, FILE_TOO_LARGE = 27 };

/* Of the system's list of processes (information class 5), the part that is read here. */
struct process_entry {
  ULONG next; /* distance to the next entry; 0: the last one */
  ULONG threads;
  UCHAR other[48];
  UNICODE_STRING image;
  LONG priority;
  HANDLE id;
  HANDLE parent;
};

NTSTATUS NTAPI ZwQuerySystemInformation(ULONG kind, void* out, ULONG room, ULONG* size);

void* allocate(size_t size) {
  void* memory = ExAllocatePoolWithTag(NonPagedPoolNx, size, POOL_TAG);
  if (memory) RtlZeroMemory(memory, size);
  return memory;
}

NTSTATUS statusOf(uint32_t error) {
  switch (error) {
    case 0:
      return STATUS_SUCCESS;
    case 31:
      return STATUS_UNSUCCESSFUL;
    case 87:
      return STATUS_INVALID_PARAMETER;
    case 234:
      return STATUS_BUFFER_OVERFLOW;
    case 995:
      return STATUS_CANCELLED;
    default: /* a Win32 number wrapped up as a status */
      return (NTSTATUS)(0xC0070000u | (error & 0xFFFFu));
  }
}

/* The number of errno that user mode would see. */
static int errnoOf(NTSTATUS status) {
  switch (status) {
    case STATUS_SUCCESS:
      return 0;
    case STATUS_OBJECT_NAME_INVALID:
    case STATUS_OBJECT_NAME_NOT_FOUND:
    case STATUS_OBJECT_PATH_NOT_FOUND:
    case STATUS_OBJECT_PATH_SYNTAX_BAD:
      return 2;
    case STATUS_INSUFFICIENT_RESOURCES:
      return 12;
    case STATUS_ACCESS_DENIED:
    case STATUS_SHARING_VIOLATION:
      return 13;
    case STATUS_FILE_IS_A_DIRECTORY:
      return 21;
    default:
      return 5;
  }
}

/* The kernel's name of a full path, in memory of its own. */
static int kernelPath(const WCHAR* path, size_t units, UNICODE_STRING* out) {
  const int network = units > 2 && path[0] == '\\' && path[1] == '\\';
  const int prefixed = network && units > 4 && path[2] == '?' && path[3] == '\\';
  UNICODE_STRING folder = prefixed  ? (UNICODE_STRING)RTL_CONSTANT_STRING(L"\\??\\")
                          : network ? (UNICODE_STRING)RTL_CONSTANT_STRING(L"\\??\\UNC\\")
                                    : (UNICODE_STRING)RTL_CONSTANT_STRING(L"\\??\\");
  const size_t skipped = prefixed ? 4 : network ? 2 : 0;
  const size_t size = folder.Length + (units - skipped) * sizeof(WCHAR);
  if (size > 0xFFFE) return 1;
  out->Buffer = allocate(size);
  if (!out->Buffer) return 1;
  out->Length = out->MaximumLength = (USHORT)size;
  RtlCopyMemory(out->Buffer, folder.Buffer, folder.Length);
  RtlCopyMemory((UCHAR*)out->Buffer + folder.Length, path + skipped, size - folder.Length);
  return 0;
}

static NTSTATUS openFile(const WCHAR* path, size_t units, ACCESS_MASK access, ULONG disposition,
                         HANDLE* file) {
  OBJECT_ATTRIBUTES attributes;
  IO_STATUS_BLOCK done;
  UNICODE_STRING name;
  NTSTATUS status;
  if (kernelPath(path, units, &name)) return STATUS_OBJECT_NAME_INVALID;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL,
                             NULL);
  status = ZwCreateFile(file, access | SYNCHRONIZE, &attributes, &done, NULL, FILE_ATTRIBUTE_NORMAL,
                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, disposition,
                        FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE, NULL, 0);
  ExFreePool(name.Buffer);
  return status;
}

NTSTATUS touchFile(const WCHAR* path, size_t units) {
  HANDLE file;
  const NTSTATUS status = openFile(path, units, FILE_APPEND_DATA, FILE_OPEN_IF, &file);
  if (NT_SUCCESS(status)) ZwClose(file);
  return status;
}

/* From the start; what is there at the first call for as many bytes as there are. */
static NTSTATUS readAll(HANDLE file, char* text, size_t size, size_t* got) {
  *got = 0;
  while (*got < size) {
    IO_STATUS_BLOCK done;
    const NTSTATUS status =
        ZwReadFile(file, NULL, NULL, NULL, &done, text + *got, (ULONG)(size - *got), NULL, NULL);
    if (status == STATUS_END_OF_FILE) break;
    if (!NT_SUCCESS(status)) return status;
    if (done.Information == 0) break;
    *got += done.Information;
  }
  return STATUS_SUCCESS;
}

static int readOpenFile(HANDLE file, char** text, size_t* size) {
  FILE_STANDARD_INFORMATION about;
  IO_STATUS_BLOCK done;
  NTSTATUS status =
      ZwQueryInformationFile(file, &done, &about, sizeof about, FileStandardInformation);
  if (!NT_SUCCESS(status)) return errnoOf(status);
  if (about.EndOfFile.QuadPart > KVP_MAX_TEXT_BYTES) return FILE_TOO_LARGE;
  *text = allocate((size_t)about.EndOfFile.QuadPart + 1);
  if (!*text) return errnoOf(STATUS_INSUFFICIENT_RESOURCES);
  return errnoOf(readAll(file, *text, (size_t)about.EndOfFile.QuadPart, size));
}

int readFile(const WCHAR* path, size_t units, char** text, size_t* size) {
  HANDLE file;
  int error;
  const NTSTATUS status = openFile(path, units, FILE_READ_DATA, FILE_OPEN, &file);
  if (!NT_SUCCESS(status)) return errnoOf(status);
  error = readOpenFile(file, text, size);
  ZwClose(file);
  return error;
}

/* The value's data, or NULL when it is no text. */
static KEY_VALUE_PARTIAL_INFORMATION* readValue(HANDLE key, const WCHAR* name) {
  KEY_VALUE_PARTIAL_INFORMATION* value;
  UNICODE_STRING text;
  ULONG size = 0;
  RtlInitUnicodeString(&text, name);
  ZwQueryValueKey(key, &text, KeyValuePartialInformation, NULL, 0, &size);
  if (size == 0 || size > KVP_MAX_PATH_BYTES) return NULL;
  value = allocate(size);
  if (!value) return NULL;
  if (NT_SUCCESS(ZwQueryValueKey(key, &text, KeyValuePartialInformation, value, size, &size)) &&
      value->Type == REG_SZ)
    return value;
  ExFreePool(value);
  return NULL;
}

WCHAR* readParameter(const WCHAR* name, size_t* units) {
  OBJECT_ATTRIBUTES attributes;
  KEY_VALUE_PARTIAL_INFORMATION* value;
  HANDLE key;
  WCHAR* text = NULL;
  InitializeObjectAttributes(&attributes, &state->parameters,
                             OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL, NULL);
  if (!NT_SUCCESS(ZwOpenKey(&key, KEY_QUERY_VALUE, &attributes))) return NULL;
  value = readValue(key, name);
  ZwClose(key);
  if (!value) return NULL;
  text = allocate(value->DataLength + sizeof(WCHAR));
  if (text) RtlCopyMemory(text, value->Data, value->DataLength);
  *units = 0;
  while (text && *units < value->DataLength / sizeof(WCHAR) && text[*units] != 0) ++*units;
  ExFreePool(value);
  return text;
}

static void describe(const struct process_entry* entry, KorvaneProcessSnapshot* out) {
  const size_t most = sizeof out->imagePath - sizeof(WCHAR);
  RtlZeroMemory(out, sizeof *out);
  out->processId = (uint32_t)(ULONG_PTR)entry->id;
  out->parentId = (uint32_t)(ULONG_PTR)entry->parent;
  out->recordBytes = sizeof *out;
  if (entry->image.Buffer)
    RtlCopyMemory(out->imagePath, entry->image.Buffer,
                  entry->image.Length < most ? entry->image.Length : most);
}

/* The list may grow between the question for its size and the one for its content. */
static NTSTATUS processList(UCHAR** list) {
  NTSTATUS status;
  ULONG size = 65536;
  do {
    *list = allocate(size);
    if (!*list) return STATUS_INSUFFICIENT_RESOURCES;
    status = ZwQuerySystemInformation(5, *list, size, NULL);
    if (NT_SUCCESS(status)) return status;
    ExFreePool(*list);
    size *= 2;
  } while (status == STATUS_INFO_LENGTH_MISMATCH && size <= 16777216);
  return status;
}

NTSTATUS eachProcess(process_taker take, void* context) {
  KorvaneProcessSnapshot process;
  UCHAR* list;
  const struct process_entry* entry;
  const NTSTATUS status = processList(&list);
  if (!NT_SUCCESS(status)) return status;
  entry = (const struct process_entry*)list;
  describe(entry, &process);
  while (take(context, &process) && entry->next != 0) {
    entry = (const struct process_entry*)((const UCHAR*)entry + entry->next);
    describe(entry, &process);
  }
  ExFreePool(list);
  return STATUS_SUCCESS;
}

void narrow(const WCHAR* text, size_t units, char* out, size_t room) {
  ULONG size = 0;
  RtlUnicodeToUTF8N(out, (ULONG)room - 1, &size, text, (ULONG)(units * sizeof(WCHAR)));
  out[size] = '\0';
}
