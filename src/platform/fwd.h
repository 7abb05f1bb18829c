// The names of the seam for headers that only refer to them: whoever calls a capability
// includes its own header.
#pragma once

#include <cstdint>

namespace korvane::platform {

inline constexpr uint32_t kInfinite = 0xFFFFFFFF;  // the time of a wait that has no bound

class Clock;
class Device;
class DeviceRequest;
class Devices;
class Event;
class File;
class FileLock;
class Files;
class Mutex;
class NativeThread;
class Pipe;
class Pipes;
class Process;
class Processes;
class Registry;
class Rights;
class Semaphore;
class SharedLibraries;
class SharedLibrary;
class Socket;
class Sockets;
class Survey;
class SystemInfo;
class ThreadLocalSlot;
class Threading;
struct DirectoryEntry;
struct FileInfo;
struct NativeOptions;
struct Platform;
enum class OpenMode;
enum class WaitResult;

}  // namespace korvane::platform
