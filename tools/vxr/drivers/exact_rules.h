// The narrow reading, tried on each INF file that a search found.
#pragma once

#include "tools/vxr/drivers/driver_list.h"

// Keeps of the list the files that a run reads, those of the directories themselves, and says of each whether the
// narrow reading installs it for the device: a run's own check of one id in one file, id by id, most specific first, on
// the open search machine. The first that can be installed comes first, as a run would take it.
void ReadExactly(const DriverQuery &query, DriverList *list);
