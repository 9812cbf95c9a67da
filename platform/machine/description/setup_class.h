// The device set-up classes of Windows that are known by name.
#pragma once

#include <string_view>

namespace machine {

struct SetupClass {
  const char *name;
  const char *guid;  // braced, upper case
};

// By name or braced GUID, without regard to case. Null when the class is not in the table.
const SetupClass *FindSetupClass(std::string_view nameOrGuid);

}  // namespace machine
