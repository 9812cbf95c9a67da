#include "inf/checks.h"

#include <cstring>

bool HandleGiven(HINF hInf, const char *caller) {
  if (hInf == INVALID_HANDLE_VALUE) VXRDbg_Log(kError, "ERROR:%s:hInf is INVALID_HANDLE_VALUE\n", caller);
  return hInf != INVALID_HANDLE_VALUE;
}

bool DecorationsGiven(const VXR_DRIVER *pVXRDriver, const char *caller) {
  return Given(pVXRDriver, "pVXRDriver", caller) && Given(pVXRDriver->pVXRDevice, "pVXRDriver->pVXRDevice", caller) &&
         Given(pVXRDriver->pVXRDevice->szTargetOS, "szTargetOS", caller);
}

bool PutText(char *buffer, SIZE_T size, const char *purpose, std::initializer_list<const char *> parts,
             const char *caller) {
  SIZE_T used = 0;
  for (const char *part : parts) {
    const SIZE_T length = part != nullptr ? std::strlen(part) : 0;
    if (length >= size - used) {
      buffer[0] = '\0';
      VXRDbg_Log(kError, "ERROR:%s:%s does not fit its %u bytes:%s...\n", caller, purpose, static_cast<DWORD>(size),
                 *parts.begin());
      return false;
    }
    if (length != 0) std::memcpy(buffer + used, part, length);
    used += length;
  }
  buffer[used] = '\0';
  return true;
}
