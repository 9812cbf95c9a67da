#include "tools/vxr/drivers/driver_list.h"

#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/drivers/exact_rules.h"
#include "tools/vxr/drivers/search_machine.h"
#include "vxrcore/machine.h"

namespace {

// A search under way.
struct Search {
  const DriversOptions *options;
  DriverList *list;
};

std::string Text(const char *text) { return MachineText(text); }

void OnCandidate(void *context, const VXRDRV_CANDIDATE *found) {
  const Search &search = *static_cast<Search *>(context);
  DriverRow row;
  row.machinePath = found->inf;
  row.inf = GivenPath(Given(*search.options), Text(found->inf));
  row.models = Text(found->models);
  row.section = Text(found->section);
  row.description = Text(found->description);
  row.manufacturer = Text(found->manufacturer);
  row.provider = Text(found->provider);
  row.id = Text(found->id);
  row.rank = found->rank;
  row.date = Text(found->date);
  row.version = Text(found->version);
  row.service = Text(found->service);
  row.reason = Text(found->reason);
  row.reasonText = GivenText(Given(*search.options), Text(found->reasonText));
  search.list->rows.push_back(std::move(row));
}

void OnUnread(void *context, const char *path, const char *reason) {
  const Search &search = *static_cast<Search *>(context);
  const std::string given = GivenPath(Given(*search.options), Text(path));
  search.list->unread.push_back({given, UnreadText(given, Text(reason)), Text(path)});
}

// The texts in the machine's code page, as a multi-string.
std::string MultiString(const std::vector<std::string> &texts) {
  std::string all;
  for (const std::string &text : texts) all += machine::Utf8ToAnsi(text, VXRMachine_CodePage()) + '\0';
  return all;
}

void Ask(const DriverQuery &query, DriverList *list) {
  Search search = {query.options, list};
  const std::string directories = MultiString(MachineDirectories(Given(*query.options)));
  const std::string hardwareIds = MultiString(query.hardwareIds), compatibleIds = MultiString(query.compatibleIds);
  const VXRDRV_QUERY asked = {query.target, directories.c_str(), hardwareIds.c_str(), compatibleIds.c_str()};
  const VXRDRV_ANSWER answer = {&search, OnCandidate, OnUnread};
  VXRDrv_FindDrivers(&asked, &answer, &list->files);
}

}  // namespace

bool FindDrivers(const DriverQuery &query, DriverList *list) {
  if (!OpenSearchMachine(*query.options)) return false;
  Ask(query, list);
#ifndef _WIN32
  if (query.options->rules == "exact") ReadExactly(query, list);
#endif
  CloseMachine();
  return true;
}
