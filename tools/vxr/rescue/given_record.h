// A run's record with the directories of driver packages as the user named them.
#pragma once

#include "tools/vxr/base/given_directories.h"
#include "tools/vxr/run/run_record.h"

void UseGivenNames(const GivenDirectories &directories, RunRecord *record);
