// An extension file for people to read.
#pragma once

#include <string>

#include "tools/vxr/extension/extension_file.h"

void PrintExtension(const std::string &path, const VXR_EXTIMAGE &image, unsigned codePage);
