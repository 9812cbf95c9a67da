// Characters of one byte or two in the ANSI code page. Stands beside the log, which cuts its lines between them.
#pragma once

#include <cstdint>

#include "platform/platform.h"

// Bytes of the character at `text`, at most `limit`. A lead byte that no trail byte follows stands alone.
inline SIZE_T CharacterLength(const char *text, SIZE_T limit = SIZE_MAX) {
  constexpr BYTE kLowestLeadByte = 0x80, kLowestTrailByte = 0x40;  // of any two-byte code page
  const auto lead = static_cast<BYTE>(*text);
  const bool twoBytes = limit > 1 && lead >= kLowestLeadByte && static_cast<BYTE>(text[1]) >= kLowestTrailByte &&
                        platform::IsDBCSLeadByte(lead);
  return twoBytes ? 2 : 1;
}

// Length of the longest beginning of `text`, of at most `limit` bytes, that ends in no half character.
inline SIZE_T WholeCharacters(const char *text, SIZE_T limit) {
  SIZE_T whole = 0;
  while (whole < limit && text[whole] != '\0') {
    // What a last lead byte belongs with lies behind the limit, or was cut off before.
    if (whole + 1 == limit && platform::IsDBCSLeadByte(static_cast<BYTE>(text[whole]))) break;
    whole += CharacterLength(text + whole);
  }
  return whole;
}
