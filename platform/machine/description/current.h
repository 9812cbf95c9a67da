// The open machine.
#pragma once

#include <memory>

#include "platform/machine/description/records.h"

namespace machine {

// The open machine; null when none. Platform calls made without one fail with ERROR_NOT_READY.
const Description *Current();
// Makes a description the open machine and its code page that of all texts; null: none is open any more.
void SetCurrent(std::unique_ptr<Description> description);

}  // namespace machine
