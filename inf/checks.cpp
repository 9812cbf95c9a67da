#include "inf/checks.h"

#include <cstring>

bool HandleGiven(HINF hInf, const Caller &trace) {
  if (hInf == INVALID_HANDLE_VALUE) trace.Error("hInf is INVALID_HANDLE_VALUE\n");
  return hInf != INVALID_HANDLE_VALUE;
}

bool DecorationsGiven(const VXR_DRIVER *pVXRDriver, const Caller &trace) {
  return Given(pVXRDriver, "pVXRDriver", trace) && Given(pVXRDriver->pVXRDevice, "pVXRDriver->pVXRDevice", trace) &&
         Given(pVXRDriver->pVXRDevice->szTargetOS, "szTargetOS", trace);
}

bool PutText(char *buffer, SIZE_T size, const char *purpose, std::initializer_list<const char *> parts,
             const Caller &trace) {
  SIZE_T used = 0;
  for (const char *part : parts) {
    const SIZE_T length = part != nullptr ? std::strlen(part) : 0;
    if (length >= size - used) {
      buffer[0] = '\0';
      trace.Error("%s does not fit its %u bytes:%s...\n", purpose, static_cast<DWORD>(size), *parts.begin());
      return false;
    }
    if (length != 0) std::memcpy(buffer + used, part, length);
    used += length;
  }
  buffer[used] = '\0';
  return true;
}
