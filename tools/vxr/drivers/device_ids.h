// A device as the command line names it.
#pragma once

#include "tools/vxr/drivers/driver_list.h"

// Gives the query the ids of the options, PCI functions in numbers expanded, blanks and quotation marks around an id
// dropped. False, after a message, when one is none.
bool ReadDeviceIds(const DriversOptions &options, DriverQuery *query);
