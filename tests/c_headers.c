/* The public headers as a C host sees them. */
#include "vxrcore/bmext.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

int32_t OpenFromC(const char *file, char *message, uint32_t messageSize);
size_t ExtensionSizeFromC(void);

static void Count(void *context, const VXRMachine_Event *event) {
  if (event->kind == VXRMACHINE_DEBUG_TEXT) ++*(int *)context;
}

/* Opens and closes a machine; the result of the opening. */
int32_t OpenFromC(const char *file, char *message, uint32_t messageSize) {
  int texts = 0;
  VXRMachine_SetObserver(Count, &texts);
  int32_t opened = VXRMachine_Open(file, message, messageSize);
  VXRMachine_Close();
  VXRMachine_SetObserver(NULL, NULL);
  return opened;
}

size_t ExtensionSizeFromC(void) { return sizeof(VXR_EXTHEADER) + sizeof(VXR_BMEXTNSON); }
