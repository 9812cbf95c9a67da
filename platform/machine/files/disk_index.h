// The described disks by number and by interface path.
#pragma once

#include <string_view>

#include "platform/machine/description/records.h"

namespace machine {

// Null when there is none. Asked of every disk in turn: neither may be a search.
const Disk *FindDiskByNumber(DWORD number);
// By interface path, without regard to case.
const Disk *FindDiskByInterface(std::string_view path);

// Called when the machine opens and when it closes.
void IndexDisks(const Description &description);
void ForgetDisks();

}  // namespace machine
