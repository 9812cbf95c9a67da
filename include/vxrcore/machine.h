/* The described machine: where the library is not built for Windows, a machine that a TOML file describes answers the
 * calls that Windows would. Open one before calling any function of vxrcore.h. C and C++ callers. */
#ifndef VXRCORE_MACHINE_H
#define VXRCORE_MACHINE_H

#include "vxrcore/events.h"
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

/* Sets a text value of the running system, its key below HKEY_LOCAL_MACHINE, until the machine closes: for a job's
 * value that one run is to have. On Windows the value is put back, or taken away, by VXRMachine_Close. `text` is in the
 * machine's ANSI code page. False without a machine, or when the value cannot be set. */
VXR_API int32_t VXRMachine_SetValue(const char *key, const char *name, const char *text);

/* Begins a rehearsal (`on` not zero) or ends it: while it is on, nothing that the library does changes a file.
 * VXREng_RunVXR goes its whole way in injection mode all the same:
 * - a copy is checked (source, target, rights, the free room for all of them) and not made; the file then counts as
 *   being there;
 * - a hive that is mounted and changed is made anew in memory when it is unmounted, its place and room are checked, and
 *   it is dropped;
 * - questions to the user get the answers that they got since the machine was opened; another is not put to a terminal;
 * - the log has no file: end a log that runs (VXRDbg_Cleanup) before the beginning and before the end.
 * The observer is told what would happen, by the same events. Whatever else would write fails with the system error 19,
 * so no extension file is made and no boot sector changed. The end takes back what was set in the running system's
 * registry; VXRMachine_Close ends it too.
 * False, with nothing begun, without a machine or with a hive mounted, and on Windows, which has no rehearsals. */
VXR_API int32_t VXRMachine_Rehearse(int32_t on);

/* From now on, until the machine closes, a hive is saved only when its bytes are those whose SHA-256 a rehearsal told,
 * in `digest` (64 lower-case hexadecimal digits, copied); any other is not saved and stays as it was. So a host that
 * has kept what such a hive replaces can always put it back. Null: any hive is saved. Ignored on Windows. */
VXR_API void VXRMachine_SaveOnly(const char *digest);

/* How often an INF file was read from disk since VXRMachine_Open. */
VXR_API uint64_t VXRMachine_InfReads(void);

#ifdef __cplusplus
}
#endif

#endif
