// The kinds of events, each taken into the record by a file of its own. False for an event of another kind.
#pragma once

#include "tools/vxr/run/choice_record.h"
#include "tools/vxr/run/run_record.h"

// The narrow search for drivers, device by device (search_record.cpp).
bool AddSearchEvent(RunRecord *record, const VXRMachine_Event &event);
// Files, registry values and hives (change_record.cpp). Any other event is passed over.
void AddChangeEvent(RunRecord *record, const VXRMachine_Event &event);

// What the copies that were made since the last device, or driver given up, are for (change_record.cpp).
void SettleCopies(RunRecord *record, CopyUse use);
// A hive that could not be unmounted is dropped when the machine closes, and what was set in it is lost.
void DropMounted(RunRecord *record);
