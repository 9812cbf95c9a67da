/* A host of the library on Linux: opens a described machine, checks that a restore job would find its drivers, puts
 * them in, and tells what was done.
 *
 *   host MACHINE.toml JOB
 *
 * The exit status is the run's result code; 1 when the job's hives could not be saved, 2 when nothing could be run. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vxrcore/machine.h"

/* What the observer counts; handed to it as the context. */
typedef struct Done {
  unsigned files, values;
} Done;

/* Comes while the library works, on the thread that called it. The texts end with the call, so what is needed later is
 * copied. They are in the machine's code page; this program shows them as they are. */
static void OnEvent(void *context, const VXRMachine_Event *event) {
  Done *done = context;
  switch (event->kind) {
    case VXRMACHINE_DRIVER_CHOSEN:
      printf("driver   %s (%s)\n", event->detail, event->subject);
      break;
    case VXRMACHINE_FILE_COPIED:
      ++done->files;
      printf("file     %s, %" PRIu64 " bytes\n", event->subject, event->size);
      break;
    case VXRMACHINE_VALUE_WRITTEN:
      ++done->values;
      break;
    case VXRMACHINE_HIVE_SAVED:
      printf("hive     %s\n", event->subject);
      break;
    case VXRMACHINE_FILE_NOT_COPIED:
    case VXRMACHINE_HIVE_REFUSED:
    case VXRMACHINE_HIVE_NOT_SAVED:
    case VXRMACHINE_PATH_REFUSED:
      printf("failed   %s: %s\n", event->subject, event->detail);
      break;
    case VXRMACHINE_VALUE_NOT_WRITTEN:
      printf("failed   %s, %s: %s\n", event->subject, event->detail ? event->detail : "the key itself", event->text);
      break;
    case VXRMACHINE_BOOT_DISK_NOT_FOUND: /* no failure to the run, which then does nothing */
      printf("failed   %s: no such boot disk\n", event->subject ? event->subject : "the job");
      break;
    default: /* of a kind that is of no interest, or that a later library brings */
      break;
  }
}

static void OnStatus(void *context, const char *text) {
  (void)context;
  printf("status   %.*s\n", (int)strcspn(text, "\n"), text);
}

/* One run; `inject` zero only checks. The log is ended behind it: only then its file is whole. */
static uint32_t Run(uint32_t job, uint32_t inject) {
  void *window = VXRMachine_CreateWindow(OnStatus, NULL);
  const uint32_t result = VXREng_RunVXR(job, inject, NULL, window);
  VXRDbg_Cleanup();
  VXRMachine_DestroyWindow(window);
  return result;
}

/* A number of 32 bits and nothing else. */
static int ReadNumber(const char *text, uint32_t *number) {
  char *end;
  const unsigned long long value = strtoull(text, &end, 10);
  *number = (uint32_t)value;
  return *text >= '0' && *text <= '9' && *end == '\0' && value <= UINT32_MAX;
}

int main(int argc, char **argv) {
  char message[1024];
  Done done = {0, 0};
  uint32_t job;
  if (argc != 3 || !ReadNumber(argv[2], &job)) {
    fprintf(stderr, "usage: host MACHINE.toml JOB\n");
    return 2;
  }
  if (!VXRMachine_Open(argv[1], message, sizeof message)) {
    fprintf(stderr, "host: %s\n", message);
    return 2;
  }
  uint32_t result = Run(job, 0);
  printf("check    %" PRIu32 "\n", result);
  if (result == VXR_RESULT_SUCCESS) {
    VXRMachine_SetObserver(OnEvent, &done);
    result = Run(job, 1);
    printf("inject   %" PRIu32 ": %u files, %u values\n", result, done.files, done.values);
  }
  const int saved = VXRMachine_Close();
  VXRMachine_SetObserver(NULL, NULL); /* `done` ends with this function */
  return result != VXR_RESULT_SUCCESS ? (int)result : saved ? 0 : 1;
}
