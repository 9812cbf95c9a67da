#include "tools/vxr/run/choice_text.h"

#include <string_view>

#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/extension/extension_file.h"

using Json = nlohmann::ordered_json;

namespace {

// "2013-03-26"; empty for 0.
std::string DriverDate(std::uint64_t date) { return TimeText(VxrPut64(date)).substr(0, 10); }

// "rank 0x00FF0000, 2021-03-04, version 10.2.0.1".
std::string Standing(const DriverCandidate &candidate) {
  std::string text = "rank " + Hexadecimal(candidate.rank);
  if (candidate.date != 0) text += ", " + DriverDate(candidate.date);
  if (!candidate.version.empty()) text += ", version " + candidate.version;
  return text;
}

void PrintOwn(const DriverCandidate &own, bool chosen, bool verify) {
  PrintLine(std::string("      ") + (chosen ? "taken    the restored system's own driver" : "beaten   its own driver") +
            (own.inf.empty() ? "" : ", " + own.inf));
  PrintLine("               for " + own.id);
  PrintLine("               " + Standing(own) +
            (own.service.empty() ? ", needs no service" : ", service " + own.service));
  if (!own.heldBack) return;
  PrintLine(!chosen  ? "               held back: the restored system would not start it"
            : verify ? "               held back until now; an injection lets it start"
                     : "               held back until now; it is let start");
}

// What speaks for a package's signature; empty for a driver that comes of none.
std::string Signatures(const DriverChoice &choice) {
  if (!choice.hasCatalog) return "";
  if (!*choice.hasCatalog && !*choice.signedInside) return "not signed";
  return std::string(*choice.hasCatalog ? "with its catalogue" : "without a catalogue") + ", " +
         (*choice.signedInside ? "driver signed" : "driver not signed") + "; not verified";
}

void PrintChosen(const DriverCandidate &chosen, const DriverChoice &choice) {
  PrintLine("      taken    " + chosen.inf);
  if (!chosen.description.empty()) PrintLine("               " + chosen.description);
  PrintLine("               for " + chosen.id);
  PrintLine("               " + Standing(chosen) +
            (chosen.service.empty() ? ", needs no service" : ", service " + chosen.service));
  if (const std::string signatures = Signatures(choice); !signatures.empty()) PrintLine("               " + signatures);
}

void PrintOther(const DriverCandidate &candidate) {
  const bool fits = candidate.reason.empty();
  PrintLine("      " + std::string(fits ? "beaten   " : "refused  ") + candidate.inf);
  PrintLine("               for " + candidate.id);
  PrintLine("               " + (fits ? Standing(candidate) : candidate.text));
}

Json CandidateJson(const DriverCandidate &candidate) {
  Json refused;
  if (!candidate.reason.empty()) refused = {{"reason", candidate.reason}, {"text", candidate.text}};
  return {{"inf", OrNull(candidate.inf)},
          {"section", OrNull(candidate.section)},
          {"description", OrNull(candidate.description)},
          {"id", candidate.id},
          {"rank", Hexadecimal(candidate.rank)},
          {"date", OrNull(DriverDate(candidate.date))},
          {"version", OrNull(candidate.version)},
          {"service", OrNull(candidate.service)},
          {"refused", refused}};
}

void AddDeletions(const char *state, const std::vector<DeletedValue> &deletions, Json *list) {
  for (const DeletedValue &deleted : deletions) {
    list->push_back({{"state", state}, {"key", deleted.key}, {"name", deleted.wholeKey ? Json() : Json(deleted.name)}});
  }
}

}  // namespace

void PrintChoice(const DeviceRecord &device, bool verify) {
  const DriverChoice &choice = *device.choice;
  const DriverCandidate *chosen = ChosenDriver(choice);
  const bool own = choice.own && chosen == &*choice.own;
  if (chosen != nullptr && !own) PrintChosen(*chosen, choice);
  if (choice.own) PrintOwn(*choice.own, own, verify);
  for (const DriverCandidate &candidate : choice.candidates) {
    if (&candidate != chosen) PrintOther(candidate);
  }
  for (const std::string &warning : choice.warnings) PrintLine("      warning  " + warning, Style::kBad);
  for (const std::string &note : choice.notes) PrintLine("      note     " + note);
}

void PrintUnread(const RunRecord &record) {
  if (record.unreadInfs.empty()) return;
  PrintTitle("Not read");
  for (const RefusedPath &unread : record.unreadInfs) PrintLine("  " + unread.path + ": " + unread.reason);
}

void PrintDeletions(const char *title, const std::vector<DeletedValue> &deletions) {
  if (deletions.empty()) return;
  PrintTitle(title);
  constexpr std::string_view kOverride = "\\StartOverride";
  for (const DeletedValue &deleted : deletions) {
    const bool held = deleted.wholeKey && deleted.key.ends_with(kOverride);
    PrintLine("  " + deleted.key +
              (held               ? "  (the whole key, which holds the driver back)"
               : deleted.wholeKey ? "  (the whole key)"
                                  : ": " + deleted.name));
  }
}

Json ChoiceJson(const DeviceRecord &device) {
  if (!device.choice) return Json();
  const DriverChoice &choice = *device.choice;
  Json candidates = Json::array();
  Json chosen, own;
  if (choice.own) {
    own = CandidateJson(*choice.own);
    own["held_back"] = choice.own->heldBack;
  }
  const DriverCandidate *taken = ChosenDriver(choice);
  for (const DriverCandidate &candidate : choice.candidates) {
    if (&candidate == taken) chosen = candidates.size();
    candidates.push_back(CandidateJson(candidate));
  }
  return {{"chosen", chosen},
          {"own_chosen", choice.made && choice.chosenInf.empty()},
          {"service", taken == nullptr ? Json() : OrNull(taken->service)},
          {"own", std::move(own)},
          {"candidates", std::move(candidates)},
          {"has_catalog", OrNull(choice.hasCatalog)},
          {"driver_signed", OrNull(choice.signedInside)},
          {"warnings", choice.warnings},
          {"notes", choice.notes}};
}

Json DeletionsJson(const std::vector<DeletedValue> &done, const std::vector<DeletedValue> &would) {
  Json list = Json::array();
  AddDeletions("deleted", done, &list);
  AddDeletions("would_delete", would, &list);
  return list;
}
