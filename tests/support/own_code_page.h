// The ANSI code page of texts, for tests of what depends on it.
#pragma once

#include "platform/platform.h"
#include "platform/text/code_page.h"

// Makes `page` the code page. False, after one line, on a Windows that has another: what needs it is to be skipped.
inline bool UseCodePage(unsigned page) {
#ifdef _WIN32
  static unsigned told = 0;
  const unsigned own = GetACP();
  if (own != page && told != page) std::printf("code page %u: skipped, this system has %u\n", page, own);
  if (own != page) told = page;
  return own == page;
#else
  machine::SetCodePage(page);
  return true;
#endif
}
