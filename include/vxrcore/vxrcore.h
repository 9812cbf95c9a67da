/* The functions that vxrcore exports to its host. C and C++ callers; call them from one thread at a time.
 *
 * Booleans are 32-bit, non-zero for true. Texts are NUL-terminated, in the system's ANSI code page. Nothing here hands
 * memory to the caller. Windows are window handles (on Linux: handles made by VXRMachine_CreateWindow). */
#ifndef VXRCORE_VXRCORE_H
#define VXRCORE_VXRCORE_H

#include <stdint.h>

#if defined(_WIN32)
#define VXR_API
#else
#define VXR_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* --- The log ------------------------------------------------------------------------------------------------------ */

/* Starts the log: level from master.ini (section "debugging", key "vxrcore"), else `level`, clamped to 0..5. `flags` is
 * not used: output begins with the log file and the debugger. `window`, when not null, shows every written line. Does
 * nothing when the log runs already. Always true. */
VXR_API int32_t VXRDbg_Initialize(int32_t level, int32_t flags, void *window);

/* Ends the log and closes its file; its content is complete only then. Does nothing when the log does not run. The next
 * line written from anywhere starts the log again, which empties the day's file. Always true. */
VXR_API int32_t VXRDbg_Cleanup(void);

/* Lines of a level above `level` are not written. Call after VXRDbg_Initialize, which would overwrite it. */
VXR_API void VXRDbg_SetLevel(uint32_t level);

/* Outputs: 0x1 log file, 0x2 debugger, 0x4 standard error, 0x8 standard output. Call after VXRDbg_Initialize. */
VXR_API void VXRDbg_SetFlags(uint32_t flags);

/* The window whose text becomes every written line; null for none. Call after VXRDbg_Initialize. */
VXR_API void VXRDbg_SetWnd(void *window);

/* --- The engine --------------------------------------------------------------------------------------------------- */

/* Builds the engine's parameter block for restore job number `job`; `inject` zero checks only. The restore run does
 * this itself. An earlier block is released first. False on failure, which leaves no block. */
VXR_API int32_t VXREng_Initialize(uint32_t inject, uint32_t job);

/* Releases the parameter block and what it owns. Always true. */
VXR_API int32_t VXREng_Cleanup(void);

/* Where status lines are shown: flags 2 replaces the window's text, 1 appends to an edit control, others show nothing.
 */
VXR_API void VXREng_SetStatusWnd(void *window, uint32_t flags);

/* Whether a file or directory of that name, or a match of that wildcard pattern, exists. False for null. */
VXR_API int32_t VXREng_FileExists(const char *path);

/* --- The restore run ---------------------------------------------------------------------------------------------- */

/* The codes of status lines. A run's result is the code of its last failing line. */
enum {
  VXR_RESULT_SUCCESS = 0,          /* every driver was put into the restored system, or would be found */
  VXR_RESULT_NO_DRIVER = 3,        /* a device of the boot disk's chain got no driver */
  VXR_RESULT_NO_HIVE = 4,          /* the restored system's SYSTEM hive was not mounted */
  VXR_RESULT_NO_ENGINE = 7,        /* the engine did not start: product directory, boot medium, computer device */
  VXR_RESULT_NO_SETTINGS = 8,      /* the job's settings are incomplete */
  VXR_RESULT_NO_EXTENSION = 9,     /* the extension file cannot be used; of recording: it was not written */
  VXR_RESULT_FILE_MISSING = 11,    /* an INF file names a driver file that is not there */
  VXR_RESULT_FILE_NOT_COPIED = 13, /* a driver file was not copied, and no older one is there */
  VXR_RESULT_NO_VOLUME = 14,       /* the restored volume is not known */
  VXR_RESULT_CANCELLED = 15,       /* the user cancelled the search for driver files */
  VXR_RESULT_NO_NAMED_DRIVER = 58, /* no driver for the one hardware id that the job names; it has no line */
  VXR_STATUS_PROGRESS = 101        /* a line that marks progress; never a result */
};

/* Finds and, when `inject` is not zero, injects the drivers that the restored system needs on this machine's boot disk,
 * as restore job `job` in the registry describes it. `inject` zero only verifies that they would be found; the restored
 * system is not touched.
 * `header`: an extension image of 80,332 bytes to use instead of the job's file, or null. It stays the caller's, must
 * outlive the run, and the job's override values are written into it.
 * `window`: shows each status line as its text, or null.
 * Returns VXR_RESULT_... */
VXR_API uint32_t VXREng_RunVXR(uint32_t job, uint32_t inject, void *header, void *window);

/* Makes the boot sector of the disk's active partition agree with the disk: of its BIOS parameter block the sectors per
 * track, the heads, the hidden sectors and (partition type 0x07 only) the total sectors. Writes that sector alone, and
 * only when a field differs.
 * `disk`: its device name, such as \\.\PhysicalDrive0.
 * True when the sector agrees now. False, with one error line in the log and the sector as it was (or, when the write
 * itself failed, as the disk left it), on any failure. */
VXR_API int32_t VXREng_FixBootVolume(const char *disk);

/* --- The bare-metal extension file -------------------------------------------------------------------------------- */

/* Describes the running machine in the file `extension` (80,332 bytes, replaced when it exists; bmext.h) and lists it
 * in the backup's includes file.
 * `includes`: settings file that gets [BMExtension] ItemCount=1 and Item0=`extension`, or null.
 * `map`: settings file whose section of each drive letter names the volume's name in the backup (DeviceName), or null.
 * Returns 0, or 9 on any failure; the file is then left as far as it was written.
 * VXREng_CreateBMExtFile also starts the log before and ends it afterwards, even one that the host had started. */
VXR_API uint32_t VXREng_CreateBMExtFile(const char *extension, const char *includes, const char *map);
VXR_API uint32_t VXRExt_CreateBMExtFile(const char *extension, const char *includes, const char *map);

/* Answers one question about an extension image in memory: the classes and codes are in bmext.h.
 * `head`: the image, VXR_EXT_FILE_SIZE bytes, at any address; only read.
 * `out`, `outSize`: the caller's buffer and, in `*outSize`, its capacity in bytes, which becomes the answer's size.
 * A capacity too small gives false and the size needed; a null `out` with enough capacity gives true and the size.
 * Texts are answered without terminator; a text that is empty has size 0.
 * `in`: points to the disk's index for codes that need one; else not used.
 * `inValue`: the volume's index or, for VXREQV_VolIndex, the drive letter.
 * False, with nothing written to `out`, when there is no answer; the log has a line that tells why, but not of an
 * unknown class, nor of an unknown code of VXREQ_Network or VXREQ_Architect. */
VXR_API int32_t VXRExt_QueryData(uint32_t queryClass, uint32_t query, uint8_t *out, uint32_t *outSize,
                                 const int32_t *in, uint32_t inValue, const void *head);

#ifdef __cplusplus
}
#endif

#endif
