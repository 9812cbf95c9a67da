#include "tools/vxr/drivers/device_ids.h"

#include <filesystem>

#include "rescue/windows_ids.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"

namespace {

// As INF files quote an id.
std::string Bare(const std::string &text) {
  constexpr char kAround[] = " \t\"";
  const std::size_t begin = text.find_first_not_of(kAround);
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(kAround) - begin + 1);
}

bool Has(const std::string &text, char character) { return text.find(character) != std::string::npos; }

// What is wrong with an id that is no PCI function; empty: nothing.
std::string IdProblem(const std::string &id) {
  std::error_code error;
  if (id.empty()) return "an id is empty";
  if (id.front() == '-') return id + ": is an option, where an id is to stand";
  if (Has(id, '\\')) return "";
  if (Has(id, ':') && id.front() != '*') {
    return id +
           ": is neither an id such as PCI\\VEN_8086&DEV_2822 nor a PCI function such as "
           "8086:2822:1028:04F7:05 010400";
  }
  if (std::filesystem::is_directory(HostFile(id), error)) {
    return id + ": is a directory, where an id is to stand; name directories before --id";
  }
  return "";
}

// A class may follow its function as an argument of its own. False, with what is wrong, when what follows is like one.
bool TakeClass(const std::vector<std::string> &ids, std::size_t *at, std::string *function, std::string *problem) {
  if (!rescue::IsPciFunction(*function) || Has(*function, ' ') || *at + 1 == ids.size()) return true;
  const std::string next = Bare(ids[*at + 1]);
  if (next.empty() || next[0] < '0' || next[0] > '9' || Has(next, '\\') || Has(next, ':')) return true;
  if (!rescue::IsPciFunction(*function + " " + next)) {
    *problem = next + ": is no class of a PCI function; give four or six hexadecimal digits, such as 010400";
    return false;
  }
  *function += " " + next;
  ++*at;
  return true;
}

void Add(std::vector<std::string> more, std::vector<std::string> *ids) {
  for (std::string &id : more) ids->push_back(std::move(id));
}

std::string ReadHardwareIds(const DriversOptions &options, DriverQuery *query) {
  std::string problem;
  for (std::size_t i = 0; i < options.ids.size(); ++i) {
    std::string id = Bare(options.ids[i]);
    rescue::PciFunction function;
    if (!TakeClass(options.ids, &i, &id, &problem)) return problem;
    if (rescue::ParsePciFunction(id, &function)) {
      query->withoutClass = query->withoutClass || !function.classCode;
      Add(rescue::HardwareIds(function), &query->hardwareIds);
      Add(rescue::CompatibleIds(function), &query->compatibleIds);
      continue;
    }
    if (problem = IdProblem(id); !problem.empty()) return problem;
    query->hardwareIds.push_back(id);
  }
  return "";
}

std::string ReadCompatibleIds(const DriversOptions &options, DriverQuery *query) {
  for (const std::string &text : options.compatibleIds) {
    const std::string id = Bare(text);
    if (rescue::IsPciFunction(id))
      return id + ": is a PCI function, which stands for ids of both kinds; give it to --id";
    if (std::string problem = IdProblem(id); !problem.empty()) return problem;
    query->compatibleIds.push_back(id);
  }
  return "";
}

}  // namespace

bool ReadDeviceIds(const DriversOptions &options, DriverQuery *query) {
  std::string problem = ReadHardwareIds(options, query);
  if (problem.empty()) problem = ReadCompatibleIds(options, query);
  if (!problem.empty()) PrintError(problem + "; see vxr drivers --help");
  return problem.empty();
}
