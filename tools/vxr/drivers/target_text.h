// A Windows version as the command line names it.
#pragma once

#include <string>

#include "vxrcore/drivers.h"

// Reads "MAJOR.MINOR[.BUILD]-ARCH[-PRODUCT[-SUITE]]", such as "10.0.19045-amd64" or "5.2.3790-amd64-3-0x112". False,
// with what is wrong in `*problem`, for anything else; the language is left as it is.
bool ParseTarget(const std::string &text, VXRDRV_TARGET *target, std::string *problem);
