// The choice of drivers by Windows' own rules, for people and for programs.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/vxr/run/run_record.h"

// Of a device whose driver was chosen: what was taken, what it was preferred to, what could not be taken and why.
void PrintChoice(const DeviceRecord &device, bool verify);
// The INF files and directories that could not be read.
void PrintUnread(const RunRecord &record);
// What an injection deletes in the restored hive, or deleted.
void PrintDeletions(const char *title, const std::vector<DeletedValue> &deletions);

// Null for a device whose driver was sought by the narrow reading.
nlohmann::ordered_json ChoiceJson(const DeviceRecord &device);
nlohmann::ordered_json DeletionsJson(const std::vector<DeletedValue> &done, const std::vector<DeletedValue> &would);
