#include "tools/vxr/extension/create_arguments.h"

#include <array>

#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/extension/extension_file.h"

namespace {

// What an argument's file is to the machine, such as "the hive of SOFTWARE"; empty: nothing.
std::string OwnFile(const std::string &argument) {
  std::array<char, 512> what{};
  if (!argument.empty()) VXRMachine_OwnFile(MachinePath(argument).c_str(), what.data(), what.size());
  return MachineText(what.data());
}

bool SameFile(const std::string &argument, const std::string &other) {
  if (argument.empty() || other.empty()) return false;
  return VXRMachine_SameFile(MachinePath(argument).c_str(), MachinePath(other).c_str()) != 0;
}

bool IsExtensionFile(const std::string &argument) {
  VXR_EXTIMAGE image;
  std::string problem;
  const std::string path = HostPath(argument);
  return !path.empty() && ReadExtensionFile(path, &image, &problem);
}

}  // namespace

std::string HostPath(const std::string &argument) { return argument.empty() ? "" : HostPathOf(MachinePath(argument)); }

std::string RefuseArguments(const CreateOptions &options) {
  const std::string &file = options.extension, &includes = options.includes, &map = options.map;
  if (const std::string own = OwnFile(file); !own.empty()) {
    return file + ": would replace " + own + "; name another file to write";
  }
  if (const std::string own = OwnFile(includes); !own.empty()) {
    return includes + ": is " + own + ", which must not be written to; name the backup's includes file";
  }
  if (const std::string own = OwnFile(map); !own.empty()) {
    return map + ": is " + own + "; name the backup's map file";
  }
  for (const std::string &other : {includes, map}) {
    if (SameFile(file, other)) return file + ": would replace " + other + "; name another file to write";
  }
  if (IsExtensionFile(includes)) {
    return includes + ": is an extension file, which must not be written to; name the backup's includes file";
  }
  return "";
}
