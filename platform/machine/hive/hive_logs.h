// The transaction logs that lie beside a hive.
#pragma once

#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/machine/hive/hive_log.h"

namespace machine {

// Opens the logs of the hive `name` in the directory (NAME.LOG1, NAME.LOG2, NAME.LOG without regard to case, in that
// order) and reads no more of them than their base blocks. Fails, with one line for people, on one that cannot be read,
// and on two of one name, between which nothing decides.
Status FindHiveLogs(int directory, const std::string &name, std::vector<HiveLog> *logs);

// Whether a file of that name beside the hive `name` is a log of it.
bool IsHiveLogName(const std::string &name, const std::string &file);

// Reads the logs, those that were not read yet. Fails as above.
Status ReadHiveLogs(std::vector<HiveLog> *logs);

}  // namespace machine
