#include "tools/vxr/run/choice_text.h"

#include "tools/vxr/base/output.h"

using Json = nlohmann::ordered_json;

namespace {

std::string OrNone(const std::string &text) { return text.empty() ? "none" : text; }

// "rank 0x00FF0000, 2021-03-04, version 10.2.0.1".
std::string Standing(const DriverCandidate &candidate) {
  std::string text = "rank " + Hexadecimal(candidate.rank);
  if (candidate.date != 0) text += ", " + DriverDate(candidate.date);
  if (!candidate.version.empty()) text += ", version " + candidate.version;
  return text;
}

void PrintChosen(const DriverChoice &choice, const DriverCandidate &chosen) {
  const bool own = choice.chosenInf.empty();
  PrintLine("      taken    " +
            (own ? "the restored system's own driver" + (chosen.inf.empty() ? "" : ", " + chosen.inf) : chosen.inf));
  if (!chosen.description.empty()) PrintLine("               " + chosen.description);
  PrintLine("               for " + chosen.id);
  PrintLine("               " + Standing(chosen) +
            (choice.service.empty() ? ", needs no service" : ", service " + choice.service));
}

void PrintChoice(const DeviceRecord &device) {
  const DriverChoice &choice = *device.choice;
  PrintLine("  " + device.instance);
  const DriverCandidate *chosen = ChosenDriver(choice);
  if (chosen != nullptr) PrintChosen(choice, *chosen);
  if (chosen == nullptr && choice.candidates.empty() && !choice.own) {
    PrintLine("      no file here lists the device, and the restored system has no driver for it", Style::kBad);
  }
  for (const DriverCandidate &candidate : choice.candidates) {
    if (&candidate == chosen) continue;
    const bool fits = candidate.reason.empty();
    PrintLine("      " + std::string(fits ? "next     " : "refused  ") + candidate.inf + "  " + candidate.id);
    PrintLine("               " + (fits ? Standing(candidate) : candidate.text));
  }
  if (choice.own && chosen != &*choice.own) {
    PrintLine("      has      " + OrNone(choice.own->service) + " of its own for " + choice.own->id);
    PrintLine("               " + Standing(*choice.own));
  }
  for (const std::string &warning : choice.warnings) PrintLine("      warning  " + warning, Style::kBad);
  for (const std::string &note : choice.notes) PrintLine("      note     " + note);
}

Json CandidateJson(const DriverCandidate &candidate) {
  const auto orNull = [](const std::string &text) { return text.empty() ? Json() : Json(text); };
  Json refused;
  if (!candidate.reason.empty()) refused = {{"reason", candidate.reason}, {"text", candidate.text}};
  return {{"inf", orNull(candidate.inf)},
          {"section", orNull(candidate.section)},
          {"description", orNull(candidate.description)},
          {"id", candidate.id},
          {"rank", Hexadecimal(candidate.rank)},
          {"date", orNull(DriverDate(candidate.date))},
          {"version", orNull(candidate.version)},
          {"service", orNull(candidate.service)},
          {"refused", refused}};
}

void AddDeletions(const char *state, const std::vector<DeletedValue> &deletions, Json *list) {
  for (const DeletedValue &deleted : deletions) {
    list->push_back({{"state", state}, {"key", deleted.key}, {"name", deleted.wholeKey ? Json() : Json(deleted.name)}});
  }
}

}  // namespace

void PrintChoices(const RunRecord &record) {
  bool titled = false;
  for (const DeviceRecord &device : record.devices) {
    if (!device.choice) continue;
    if (!titled) PrintTitle("Drivers, by Windows' rules");
    titled = true;
    PrintChoice(device);
  }
  if (record.unreadInfs.empty()) return;
  PrintTitle("Not read");
  for (const RefusedPath &unread : record.unreadInfs) PrintLine("  " + unread.path + ": " + unread.reason);
}

void PrintDeletions(const char *title, const std::vector<DeletedValue> &deletions) {
  if (deletions.empty()) return;
  PrintTitle(title);
  for (const DeletedValue &deleted : deletions) {
    PrintLine("  " + deleted.key + (deleted.wholeKey ? "  (the whole key)" : ": " + deleted.name));
  }
}

Json ChoiceJson(const DeviceRecord &device) {
  if (!device.choice) return Json();
  const DriverChoice &choice = *device.choice;
  Json candidates = Json::array();
  Json chosen;
  const DriverCandidate *taken = ChosenDriver(choice);
  for (const DriverCandidate &candidate : choice.candidates) {
    if (&candidate == taken) chosen = candidates.size();
    candidates.push_back(CandidateJson(candidate));
  }
  return {{"chosen", chosen},
          {"own_chosen", choice.made && choice.chosenInf.empty()},
          {"service", choice.service.empty() ? Json() : Json(choice.service)},
          {"own", choice.own ? CandidateJson(*choice.own) : Json()},
          {"candidates", std::move(candidates)},
          {"warnings", choice.warnings},
          {"notes", choice.notes}};
}

Json DeletionsJson(const RunRecord &record, const std::vector<DeletedValue> &would) {
  Json list = Json::array();
  AddDeletions("deleted", record.deletions, &list);
  AddDeletions("would_delete", would, &list);
  return list;
}
