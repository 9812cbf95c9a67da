// Systems that several tests choose drivers for.
#pragma once

#include "package/read/target.h"

namespace package {

inline const Target kXp = {5, 1, 2600, kX86};
inline const Target k10 = {10, 0, 19045, kAmd64};

}  // namespace package
