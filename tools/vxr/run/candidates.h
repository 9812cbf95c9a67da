// Why a device got no driver: the INF files at hand that list one of its ids, and why each was not taken.
#pragma once

#include "tools/vxr/run/run_record.h"

// Fills the candidates of each device without driver, and adds to the record's problems what is wrong with a directory
// that was searched for one. Reads the INF files in and below those directories; the machine must still be open.
void ExplainFailures(RunRecord *record);
