// The drivers that were found for a device, for people and for programs.
#pragma once

#include "tools/vxr/drivers/driver_list.h"

// Whether the first of the list would be taken.
inline bool IsChosen(const DriverList &list) { return !list.rows.empty() && list.rows.front().reason.empty(); }

void PrintDriversText(const DriverQuery &query, const DriverList &list);
void PrintDriversJson(const DriverQuery &query, const DriverList &list);
