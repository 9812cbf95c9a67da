/* Which driver Windows would take for a device, of directories full of driver packages. Needs no restored system and
 * changes nothing. C and C++ callers. */
#ifndef VXRCORE_DRIVERS_H
#define VXRCORE_DRIVERS_H

#include <stdint.h>

#include "vxrcore/vxrcore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The Windows that the driver is for. */
typedef struct VXRDRV_TARGET {
  uint32_t major, minor, build;
  uint32_t architecture; /* 0 x86, 6 ia64, 9 amd64, 12 arm64 */
  uint32_t product;      /* 1 workstation, 2 domain controller, 3 server */
  uint32_t suite;        /* bits */
  uint32_t language;     /* of its texts, such as 0x0409 */
} VXRDRV_TARGET;

typedef struct VXRDRV_QUERY {
  VXRDRV_TARGET target;
  const char *directories;   /* multi-string; a path that begins with "/" is the host's own where that has such paths */
  const char *hardwareIds;   /* multi-string, most specific first */
  const char *compatibleIds; /* the same, or null */
} VXRDRV_QUERY;

/* One INF file, line and id of the device that is that line's best. Texts live until the call returns; a text that the
 * INF file does not have is empty. */
typedef struct VXRDRV_CANDIDATE {
  const char *inf;     /* as found below the directory */
  const char *models;  /* Models section taken */
  const char *section; /* install section taken */
  const char *description;
  const char *manufacturer;
  const char *provider;
  const char *id;
  uint32_t rank;          /* lower is better */
  const char *date;       /* "YYYY-MM-DD"; null: none */
  const char *version;    /* as written */
  const char *service;    /* null: the device needs none, or it is not known */
  const char *reason;     /* null: it can be installed. Else "decoration", "section-missing", "file-missing",
                             "architecture", "excluded", "directive", "compressed" or "no-binary" */
  const char *reasonText; /* a sentence for people; null as `reason` */
} VXRDRV_CANDIDATE;

/* What the query finds, in the order of preference, those that cannot be installed behind. */
typedef struct VXRDRV_ANSWER {
  void *context;
  void (*candidate)(void *context, const VXRDRV_CANDIDATE *candidate);
  void (*unread)(void *context, const char *path, const char *reason); /* a file or directory that is passed over */
} VXRDRV_ANSWER;

/* Answers the query through the functions of `answer`, on the caller's thread. `*files` gets the number of INF files
 * that were read. Returns true when a candidate can be installed; the first one is then what would be taken. On a
 * system that is not Windows a described machine must be open (vxrcore/machine.h); false without one. Not exported by
 * vxrcore.dll. */
VXR_API int32_t VXRDrv_FindDrivers(const VXRDRV_QUERY *query, const VXRDRV_ANSWER *answer, uint32_t *files);

#ifdef __cplusplus
}
#endif

#endif
