// Names that stand for a device in every directory and with any ending: CON, nul.txt, COM1.sys...
#pragma once

#include <cstring>
#include <iterator>

#include "platform/platform.h"

// The digits one, two and three raised, in the encoding of the names; empty where it lacks them. Ports are numbered by
// them too.
struct RaisedDigits {
  char digit[3][4];
};

// `name` is in upper case; `raisedDigits` is asked only for what may be a port's name. No system has a port 0, but some
// refuse its name all the same, so it counts.
inline bool IsDeviceName(const char *name, RaisedDigits (*raisedDigits)()) {
  SIZE_T length = std::strcspn(name, ".");
  while (length > 0 && name[length - 1] == ' ') --length;
  for (const char *device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"}) {
    if (length == std::strlen(device) && std::strncmp(name, device, length) == 0) return true;
  }
  if (length < 4 || (std::strncmp(name, "COM", 3) != 0 && std::strncmp(name, "LPT", 3) != 0)) return false;
  if (length == 4 && name[3] >= '0' && name[3] <= '9') return true;
  const RaisedDigits raised = raisedDigits();
  for (const char *digit : raised.digit) {
    if (length == 3 + std::strlen(digit) && std::strncmp(name + 3, digit, length - 3) == 0) return true;
  }
  return false;
}

// The raised digits of names in the ANSI code page. Elsewhere than in the code pages that have them, their bytes are
// letters.
inline RaisedDigits CodePageDigits() {
  static constexpr WCHAR kRaised[] = {0xB9, 0xB2, 0xB3};
  RaisedDigits raised = {};
  for (SIZE_T i = 0; i < std::size(kRaised); ++i) {
    platform::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, &kRaised[i], 1, raised.digit[i],
                                  sizeof raised.digit[i] - 1, nullptr, nullptr);
  }
  return raised;
}
