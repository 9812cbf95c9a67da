// What the parts of planning a package share: one driver under way.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "package/plan/plan.h"

namespace package {

// What an INF file of its size could ask for beyond any sense.
inline constexpr std::size_t kPlannedLines = 4096;  // registry lines, and lines of copy lists
inline constexpr std::size_t kPlannedServices = 64;

struct Work {
  const Candidate &candidate;
  const Installation &installation;
  const PlanContext &context;
  Plan *plan;  // gets files and what is said; its registry changes only when all is planned

  RegistryEdits edits = {};                               // those of the plan, and this driver's
  RestoredPlaces own = {};                                // the places as the restored system itself will name them
  std::set<std::string> services = {};                    // names of those that are planned, in upper case
  std::map<std::string, std::set<DWORD>> groupTags = {};  // tags in use, by load order group in upper case
  bool groupTagsRead = false;
  std::map<std::string, std::size_t> targets = {};  // number in the plan's files by target in upper case
  std::set<std::string> directories = {};           // that exist or are planned, in upper case
  std::vector<RegistryEdit> configuration = {};     // see BootRecord
  std::vector<std::string> upperFilters = {}, lowerFilters = {};
  std::size_t lines = 0;
  std::set<std::string> said = {};
};

// Says why the package cannot be planned; false.
bool Refuse(PlanRefusal *refusal, Refusal kind, std::string text);
// A warning and a note, each said once; behind a great many of them nothing more is said.
void Warn(Work *work, const std::string &sentence);
void Note(Work *work, const std::string &sentence);

std::string ServiceKey(const Work &work, const std::string &service);
// "D:\Windows\System32\drivers\x.sys".
std::string DriverPath(const RestoredPlaces &places, const std::string &name);
// Whether the service is planned, or the hive has it so that it can start, with its file in place.
bool HasService(const Work &work, const std::string &service);
// Of a service that is there: whether it starts with the system.
bool StartsAtBoot(const Work &work, const std::string &service);
bool IsFunctionDriver(const Work &work, const ServiceLines &service);

// The directories that this plan and earlier ones make, in upper case.
std::set<std::string> PlannedDirectories(const PlanContext &context, const Plan &plan);
// The copy lists, then the files of the services. False, with the reason, when one of a service is not to be had.
bool PlanFiles(Work *work, PlanRefusal *refusal);
// A file that takes the place of what is there, unless that is the same already; with the directories that it needs.
void PlanFile(const std::string &source, const std::string &target, DWORD64 size, bool needed, Work *work);
// The same for one file that no list names, of a plan without a package.
void AddFile(const PlannedFile &file, const PlanContext &context, Plan *plan);

// Looks at the services before anything is planned. False, with the reason, when one has no plain name.
bool CheckServices(Work *work, PlanRefusal *refusal);
// The services and what their sections add. False, with the reason, when the device's own cannot start with the system.
bool PlanServices(Work *work, PlanRefusal *refusal);

// The registry lines of the install section, of its .HW section, and of a service.
void PlanInstallLines(Work *work);
void PlanHardwareLines(Work *work);
void PlanServiceLines(const ServiceLines &service, Work *work);
// The text with directory ids between percent signs replaced by the places that the restored system will know.
std::string OwnText(const Work &work, const std::string &text);

}  // namespace package
