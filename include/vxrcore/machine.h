/* The described machine: where the library is not built for Windows, a machine that a TOML file describes answers the
 * calls that Windows would. Open one before calling any function of vxrcore.h. C and C++ callers. */
#ifndef VXRCORE_MACHINE_H
#define VXRCORE_MACHINE_H

#include "vxrcore/vxrcore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the machine that the TOML file at host path `file` describes. One machine at a time.
 * False when it cannot be used; `message` (of `messageSize` bytes) then holds one line that names file, line and key.
 */
VXR_API int32_t VXRMachine_Open(const char *file, char *message, uint32_t messageSize);

/* The same for a machine whose TOML text is in memory (UTF-8). Paths in it are relative to the host directory
 * `directory`; null or empty: the current one. Messages name the line only, as "machine:LINE: KEY: ...". */
VXR_API int32_t VXRMachine_OpenText(const char *text, const char *directory, char *message, uint32_t messageSize);

/* Closes the machine: saves changed registry hives of the running system, releases everything. A hive still mounted is
 * dropped without being saved. False when a hive could not be saved (the observer was told the reason). */
VXR_API int32_t VXRMachine_Close(void);

/* Called with each text that a window is given; after an insertion into the text, with the whole new text. `text` is in
 * the machine's ANSI code page, valid during the call. The callback may destroy the window. */
typedef void (*VXRMachine_WindowText)(void *context, const char *text);

/* A window handle for VXREng_RunVXR, VXREng_SetStatusWnd, VXRDbg_Initialize or VXRDbg_SetWnd; null without memory or
 * machine. Lives until VXRMachine_DestroyWindow or VXRMachine_Close. */
VXR_API void *VXRMachine_CreateWindow(VXRMachine_WindowText callback, void *context);
VXR_API void VXRMachine_DestroyWindow(void *window);

/* What the machine did or refused, for a host that reports it. Unused texts are null, unused numbers 0. */
enum {
  VXRMACHINE_FILE_COPIED = 1,     /* subject: target, detail: source, size: bytes */
  VXRMACHINE_FILE_NOT_COPIED = 2, /* subject: target, detail: reason, size: 1 when an old target was kept, else 0 */
  VXRMACHINE_VALUE_WRITTEN = 3,   /* subject: key, detail: value name, text: data for people, type, size: bytes;
                                     of the running system too */
  VXRMACHINE_HIVE_LOADED = 4,     /* subject: hive file, detail: mount point */
  VXRMACHINE_HIVE_REFUSED = 5,    /* subject: hive file, detail: reason */
  VXRMACHINE_HIVE_SAVED = 6,      /* subject: hive file, size: bytes */
  VXRMACHINE_HIVE_NOT_SAVED = 7,  /* subject: hive file, detail: reason, size: 0 when the old hive stays, else bytes of
                                     the new one, which is in place but not surely on the disk */
  VXRMACHINE_DRIVER_CHOSEN = 8,   /* subject: INF file, detail: driver description, text: its first hardware id */
  VXRMACHINE_DEBUG_TEXT = 9,      /* text: what went to the debugger output */
  VXRMACHINE_PATH_REFUSED = 10,   /* subject: Windows path, detail: why it is not followed */
  VXRMACHINE_HIVE_REPLAYED = 11,  /* subject: hive file, detail: such as "replayed 14 entries from two logs" */
  VXRMACHINE_VALUE_NOT_WRITTEN = 12 /* subject: key, detail: value name, null for a key that could not be created,
                                       text: reason, type, size: the system's error code; of the running system too */
};

typedef struct VXRMachine_Event {
  uint32_t kind;
  uint32_t type; /* registry value type */
  uint64_t size;
  const char *subject;
  const char *detail;
  const char *text;
} VXRMachine_Event;

/* `event` and its texts are valid during the call. */
typedef void (*VXRMachine_Observer)(void *context, const VXRMachine_Event *event);

/* Registers the one observer; null for none. May be called before VXRMachine_Open. */
VXR_API void VXRMachine_SetObserver(VXRMachine_Observer observer, void *context);

/* The ANSI code page in which the open machine gives its texts (1252, 932, ...); 0 when none is open. */
VXR_API uint32_t VXRMachine_CodePage(void);

/* Where on the host a path of the open machine leads; the file need not exist. False, with an empty text, when its
 * drive or directory does not exist, when it leads out of its drive, or when it does not fit `hostPathSize` bytes. */
VXR_API int32_t VXRMachine_HostPath(const char *path, char *hostPath, uint32_t hostPathSize);

/* Whether two paths of the open machine lead to one file, by links or otherwise, or would once either is made. False
 * too when one of them leads nowhere. */
VXR_API int32_t VXRMachine_SameFile(const char *path, const char *other);

/* Whether a path of the open machine leads to a file that makes up the machine; `what` (of `whatSize` bytes, cut to
 * fit) then gets "the machine file", "the hive of KEY" or "the image of disk N", else an empty text. */
VXR_API int32_t VXRMachine_OwnFile(const char *path, char *what, uint32_t whatSize);

/* Data of a registry value of the open machine, its key below HKEY_LOCAL_MACHINE, as a program of the ANSI code page
 * reads it. `*size`: bytes of `data` before, of the value after; without `data` it only tells. False when there is no
 * such value, or when it does not fit. */
VXR_API int32_t VXRMachine_ReadValue(const char *key, const char *name, uint32_t *type, void *data, uint32_t *size);

/* The open machine's kind of processor: 0 x86, 6 Itanium, 9 x64; 0xFFFF when none is open. */
VXR_API uint32_t VXRMachine_ProcessorArchitecture(void);

/* How often an INF file was read from disk since VXRMachine_Open. */
VXR_API uint64_t VXRMachine_InfReads(void);

#ifdef __cplusplus
}
#endif

#endif
