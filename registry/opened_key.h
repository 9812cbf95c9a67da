// A registry key that is closed when its holder goes.
#pragma once

#include <memory>

#include "platform/platform.h"

struct KeyCloser {
  void operator()(HKEY key) const { platform::RegCloseKey(key); }
};
using OpenedKey = std::unique_ptr<HKEY__, KeyCloser>;
