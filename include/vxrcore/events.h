/* What a host that watches a run hears beside the log and the status lines: what was done, refused and decided. */
#ifndef VXRCORE_EVENTS_H
#define VXRCORE_EVENTS_H

#include <stdint.h>

/* Kinds of events. Unused texts are null, unused numbers 0. */
enum {
  VXRMACHINE_FILE_COPIED = 1,     /* subject: target, detail: source, size: bytes */
  VXRMACHINE_FILE_NOT_COPIED = 2, /* subject: target, detail: reason, size: 1 when an old target was kept, else 0 */
  VXRMACHINE_VALUE_WRITTEN = 3,   /* subject: key, detail: value name, text: data for people, type, size: bytes;
                                     of the running system too */
  VXRMACHINE_HIVE_LOADED = 4,     /* subject: hive file, detail: mount point */
  VXRMACHINE_HIVE_REFUSED = 5,    /* subject: hive file, detail: reason */
  VXRMACHINE_HIVE_SAVED = 6,      /* subject: hive file, size: bytes, text: in a rehearsal SHA-256 of the bytes that it
                                     would have, 64 lower-case hexadecimal digits */
  VXRMACHINE_HIVE_NOT_SAVED = 7,  /* subject: hive file, detail: reason, size: 0 when the old hive stays, else bytes of
                                     the new one, which is in place but not surely on the disk */
  VXRMACHINE_DRIVER_CHOSEN = 8,   /* subject: INF file, detail: driver description, text: its first hardware id */
  VXRMACHINE_DEBUG_TEXT = 9,      /* text: what went to the debugger output */
  VXRMACHINE_PATH_REFUSED = 10,   /* subject: Windows path, detail: why it is not followed */
  VXRMACHINE_HIVE_REPLAYED = 11,  /* subject: hive file, detail: such as "replayed 14 entries from two logs" */

  VXRMACHINE_VALUE_NOT_WRITTEN = 12, /* subject: key, detail: value name, null for a key that could not be created,
                                        text: reason, type, size: the system's error code; of the running system too */

  /* The search for drivers. What follows a device is about it, what follows a tried INF file is about that. */
  VXRMACHINE_DEVICE_CHECKED = 13,     /* subject: instance id; type: 1 when it is no device but the one hardware id
                                         that the job names, for which nothing is copied */
  VXRMACHINE_DEVICE_ID = 14,          /* subject: one of its hardware ids, then of its compatible ids */
  VXRMACHINE_DEVICE_TARGET = 15,      /* subject: a decoration that sections for the restored system may have */
  VXRMACHINE_DIRECTORY_SEARCHED = 16, /* subject: a directory that is looked into for INF files */
  VXRMACHINE_INF_TRIED = 17,          /* subject: INF file, detail: the id sought in it; null: any of the device's */
  VXRMACHINE_INF_REFUSED = 18,        /* type: VXRMACHINE_REFUSED_..., detail: what the reason is about */
  VXRMACHINE_DRIVER_TAKEN = 19,       /* subject: description on the model line, detail: the id that it lists */
  VXRMACHINE_DEVICE_FAILED = 20,      /* subject: instance id of a device without driver; null: not known */
  VXRMACHINE_DISK_ALONE = 21,         /* subject: instance id of a disk above which no controller is looked for, since
                                         its bus is neither IDE nor SCSI */
  VXRMACHINE_DEVICE_OF_OTHER_CLASS = 22, /* subject: instance id of a device that is not in the class in which it is
                                           looked for, type: that class (VXR_DEVTYPE_...) */

  /* The log and the status lines. What the log writes as an error comes before the event that tells what it means. */
  VXRMACHINE_LOG_OPENED = 23,     /* subject: the log's file */
  VXRMACHINE_LOG_NOT_OPENED = 24, /* subject: the log's file, type: the system's error code */
  VXRMACHINE_ERROR_LOGGED = 25, /* subject: the function that met an error, detail: its line behind the function's name,
                                   text: the call that failed, type: the system's error code; null and 0 when the
                                   error is of another kind */
  VXRMACHINE_STATUS_LINE = 26,  /* subject: the line, type: VXR_STATUS_PROGRESS or the result code that it sets */

  /* A restore run. */
  VXRMACHINE_VALUE_NOT_READ = 27,  /* subject: key, detail: value name, type: the system's error code */
  VXRMACHINE_KEY_MISSING = 28,     /* subject: a key that is not there, and is created */
  VXRMACHINE_NAMED_ID_UNREAD = 29, /* whether the job names a hardware id is not known; type: the system's error code */
  VXRMACHINE_COPY_BYPASSED = 30,   /* subject: target, detail: source of a file that only an injection copies */
  VXRMACHINE_MODEL_GIVEN_UP = 31,  /* subject: description on a model line whose driver could not be installed, detail:
                                      the id that it lists */
  VXRMACHINE_INF_PROCESSED = 32,   /* subject: INF file, detail: instance id of the device that it served */
  VXRMACHINE_DEVICE_SET_UP = 33,   /* subject: instance id of a device that has its driver */
  VXRMACHINE_HIVE_NOT_UNLOADED = 34,   /* subject: mount point's directory, type: the system's error code */
  VXRMACHINE_BOOT_DISK_NOT_FOUND = 35, /* subject: the job's boot disk; null: it names none */

  /* A boot-sector repair. */
  VXRMACHINE_BOOT_FACT = 36,      /* type: VXRMACHINE_BOOT_..., size: its value */
  VXRMACHINE_BOOT_FIELD_SET = 37, /* type: the field of the boot sector that did not agree and is set anew */
  VXRMACHINE_BOOT_REFUSED = 38,   /* type: VXRMACHINE_BOOT_BYTES for a disk whose sectors cannot have that many,
                                     VXRMACHINE_BOOT_FIRST for a partition that begins at the master boot record */

  /* Recording a machine. */
  VXRMACHINE_VOLUME_CHECKED = 39,        /* subject: root of a fixed drive; what follows is about it */
  VXRMACHINE_VOLUME_LEFT_OUT = 40,       /* subject: the same of a drive that could not be recorded */
  VXRMACHINE_VOLUMES_FULL = 41,          /* no more volumes fit: later drives are not looked at */
  VXRMACHINE_DISK_NOT_PRESENT = 42,      /* a disk of the drive is not among the present devices; type: its number */
  VXRMACHINE_DEVICE_WITHOUT_DRIVER = 43, /* subject: instance id of a device of the drive's disk that is not there, or
                                           has no driver, service entry or parent */

  /* The choice by Windows' own rules. Candidates of a device come in the order in which they are preferred. */
  VXRMACHINE_INF_INDEXED = 44,       /* now and then while INF files are read; size: their number so far */
  VXRMACHINE_INF_UNREAD = 45,        /* subject: INF file or directory, detail: why it is passed over */
  VXRMACHINE_CANDIDATE = 46,         /* subject: INF file, detail: the id that it lists, text: description, type: rank,
                                        size: driver date (100 ns since 1601, 0 none) */
  VXRMACHINE_CANDIDATE_DRIVER = 47,  /* of the candidate before: subject: service, null when none is needed, detail:
                                        driver version as written, text: install section */
  VXRMACHINE_CANDIDATE_REFUSED = 48, /* of the candidate before: subject: the reason's word (VXRDRV_CANDIDATE of
                                        vxrcore/drivers.h), detail: a sentence */
  VXRMACHINE_OWN_DRIVER = 49,        /* what the restored system has for the device: subject: service, null when none is
                                        needed, detail: the id, text: INF name, type: rank, size: driver date */
  VXRMACHINE_CANDIDATE_CHOSEN = 50,  /* subject: INF file; null for the restored system's own driver, detail: service;
                                        null when none is needed */

  /* A plan: what an injection makes, and a verification would. */
  VXRMACHINE_PLAN_FILE = 51,         /* subject: target, detail: source, size: bytes */
  VXRMACHINE_PLAN_VALUE = 52,        /* as VXRMACHINE_VALUE_WRITTEN */
  VXRMACHINE_PLAN_KEY = 53,          /* subject: a key that is created without a value */
  VXRMACHINE_PLAN_DELETE = 54,       /* subject: key, detail: value that is deleted; null: the key with all below it */
  VXRMACHINE_PLAN_WARNING = 55,      /* subject: a sentence about what may keep the driver from starting */
  VXRMACHINE_PLAN_NOTE = 56,         /* subject: a sentence about what was passed over */
  VXRMACHINE_FILE_LEFT = 57,         /* subject: a file that stays in the restored system after a failure */
  VXRMACHINE_HIVE_NOT_RESTORED = 58, /* subject: a key that could not be put back as it was after a failure */

  VXRMACHINE_VALUE_DELETED = 59,        /* subject: key, detail: value name; null: the key with all below it */
  VXRMACHINE_JOB_VALUE_UNKNOWN = 60,    /* subject: a value of the job's key whose text is none of those it can have,
                                          detail: the text; null for a value that is not of its type. The run goes on
                                          as if the value were not there */
  VXRMACHINE_OWN_DRIVER_HELD_BACK = 61, /* of the VXRMACHINE_OWN_DRIVER before: the restored system would not start it;
                                           subject: service. Chosen, it is let start */
  VXRMACHINE_PLAN_SIGNATURES = 62       /* of the package that was chosen: type: 1 when it has the catalogue that it
                                           names, size: 1 when its driver holds a signature; neither is verified */
};

/* Why an INF file was refused, in the order in which a file gets that far. Of several reasons for one attempt the last
 * counts; VXRMACHINE_REFUSED_RESTORED_SYSTEM only where it is the one. */
enum {
  VXRMACHINE_REFUSED_UNREADABLE = 1,       /* it cannot be read, or is no INF file of this style */
  VXRMACHINE_REFUSED_CLASS = 2,            /* it is for devices of another class; detail: its ClassGUID */
  VXRMACHINE_REFUSED_RUNNING_SYSTEM = 3,   /* lists no id of the device for the system that the run works on */
  VXRMACHINE_REFUSED_RESTORED_SYSTEM = 4,  /* lists the id in no section for the restored system */
  VXRMACHINE_REFUSED_NO_SECTION = 5,       /* detail: an install section that is not there or empty; null: none
                                              is named */
  VXRMACHINE_REFUSED_DIRECTIVE = 6,        /* detail: a directive that is not carried out */
  VXRMACHINE_REFUSED_EMPTY_DIRECTIVE = 7,  /* detail: a directive without a value */
  VXRMACHINE_REFUSED_BARE_LINE = 8,        /* detail: an install section whose last line is no directive */
  VXRMACHINE_REFUSED_COPY_SECTION = 9,     /* detail: a list of files that is not there or empty */
  VXRMACHINE_REFUSED_FILE_NAME = 10,       /* detail: what is not the name of one file */
  VXRMACHINE_REFUSED_FILE_MISSING = 11,    /* detail: source file */
  VXRMACHINE_REFUSED_FILE_NOT_COPIED = 12, /* detail: target file; its name alone when no path could be made */
  VXRMACHINE_REFUSED_NO_SERVICE = 13,      /* detail: the install section that no complete AddService belongs to */
  VXRMACHINE_REFUSED_SERVICE_SECTION = 14, /* detail: a service's section that is not there or empty */
  VXRMACHINE_REFUSED_SERVICE_VALUE = 15,   /* detail: what of a service's section could not be read or written; null:
                                              its last line is none */
  VXRMACHINE_REFUSED_NOT_REGISTERED = 16   /* the driver could not be named for the device; detail: its directory */
};

/* What a boot-sector repair finds. */
enum {
  /* The disk's geometry. */
  VXRMACHINE_BOOT_CYLINDERS = 1,
  VXRMACHINE_BOOT_HEADS = 2,
  VXRMACHINE_BOOT_SECTORS = 3, /* a track */
  VXRMACHINE_BOOT_BYTES = 4,   /* a sector */
  /* The active partition. */
  VXRMACHINE_BOOT_ENTRY = 5, /* from 0 */
  VXRMACHINE_BOOT_TYPE = 6,
  VXRMACHINE_BOOT_LENGTH = 7, /* sectors */
  VXRMACHINE_BOOT_FIRST = 8,  /* sector */
  /* The fields of its boot sector, as they were. */
  VXRMACHINE_BOOT_FIELD_SECTORS = 9,
  VXRMACHINE_BOOT_FIELD_HEADS = 10,
  VXRMACHINE_BOOT_FIELD_HIDDEN = 11,
  VXRMACHINE_BOOT_FIELD_TOTAL = 12
};

typedef struct VXRMachine_Event {
  uint32_t kind;
  uint32_t type; /* of what, the kind says: a registry value type, a reason, a code */
  uint64_t size;
  const char *subject;
  const char *detail;
  const char *text;
} VXRMachine_Event;

#endif
