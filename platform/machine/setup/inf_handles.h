// The INF files that are open by handle.
#pragma once

#include <cstddef>
#include <string>

#include "platform/platform.h"

namespace machine {

// The path that an INF call means: a bare name is one in the machine's inf directory.
std::string InfPathOf(const char *fileName);

void CloseInfHandles();
std::size_t OpenInfHandles();  // for tests that look for leaks

}  // namespace machine
