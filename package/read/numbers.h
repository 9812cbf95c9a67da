// Numbers of INF files.
#pragma once

#include <string>

#include "platform/platform.h"

namespace package {

// Decimal or with 0x, negative ones as their 32 bits. Blanks around do not count.
bool ParseNumber(const std::string &text, DWORD *number);
// Two digits in hexadecimal, with 0x or without.
bool ParseByte(const std::string &text, char *byte);

}  // namespace package
