#include "tools/vxr/rescue/undo_command.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <nlohmann/json.hpp>

#include "rescue/undo.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/rescue/rescue_facts.h"

using Json = nlohmann::ordered_json;
using rescue::UndoEntry;
using rescue::UndoFolder;
using rescue::UndoState;

namespace {

std::string Time(const UndoFolder &undo, const char *form) {
  const std::time_t seconds = undo.time;
  std::tm parts = {};
  char text[64] = "";
  if (gmtime_r(&seconds, &parts) != nullptr) std::strftime(text, sizeof text, form, &parts);
  return text;
}

bool Any(const UndoFolder &undo, UndoState state) {
  return std::any_of(undo.entries.begin(), undo.entries.end(),
                     [state](const UndoEntry &entry) { return entry.state == state; });
}

// The document's time, program and folder; null where they are not known.
Json HeadJson(const UndoFolder &undo) {
  const bool known = undo.problem.empty() && !undo.unfinished;
  return {{"folder", HostName(undo.folder)},
          {"time", known ? Json(Time(undo, "%Y-%m-%dT%H:%M:%SZ")) : Json()},
          {"program", known ? Json(undo.program) : Json()},
          {"later", OrNull(undo.later)},
          {"forgot_hibernation", undo.forgotHibernation}};
}

Json EntryJson(const UndoEntry &entry, const char *state) {
  return {{"path", HostName(entry.path)},
          {"kind", entry.hive        ? "hive"
                   : entry.directory ? "directory"
                                     : "file"},
          {"new", entry.isNew},
          {"state", state}};
}

// --- The list -------------------------------------------------------------------------------------------------------

const char *WordOf(UndoState state) {
  return state == UndoState::kChanged ? "changed" : state == UndoState::kInjected ? "injected" : "unchanged";
}

const char *StateOf(const UndoFolder &undo) {
  if (!undo.problem.empty()) return "unusable";
  if (undo.unfinished) return "unfinished";
  if (Any(undo, UndoState::kChanged)) return "changed since";
  if (!Any(undo, UndoState::kInjected)) return "nothing of it is there";
  if (!rescue::WasStopped(undo)) return "injected";
  machine::Descriptor lock;
  return rescue::LockWindows(undo.folder.parent_path().parent_path(), &lock, true) ? "stopped" : "at work";
}

void PrintFolder(const UndoFolder &undo) {
  PrintLine(HostName(undo.folder), Style::kBold);
  if (!undo.problem.empty()) {
    PrintLine("    " + undo.problem, Style::kBad);
    return;
  }
  if (undo.unfinished) {
    PrintLine("    unfinished: the run was stopped before it changed anything");
    return;
  }
  const auto isFile = [](const UndoEntry &entry) { return !entry.directory; };
  const auto files = std::count_if(undo.entries.begin(), undo.entries.end(), isFile);
  PrintLine("    " + Time(undo, "%Y-%m-%d %H:%M:%S UTC") + ", " + undo.program + ", " + std::to_string(files) +
            (files == 1 ? " file, " : " files, ") + StateOf(undo));
  for (const UndoEntry &entry : undo.entries) {
    if (entry.state == UndoState::kChanged) PrintLine("    changed since: " + HostName(entry.path), Style::kBad);
  }
  if (!undo.later.empty()) PrintLine("    " + undo.later + " is to be taken back first");
}

Json FolderJson(const UndoFolder &undo) {
  Json json = HeadJson(undo);
  json["state"] = StateOf(undo);
  json["problem"] = OrNull(undo.problem);
  json["entries"] = Json::array();
  for (const UndoEntry &entry : undo.entries) json["entries"].push_back(EntryJson(entry, WordOf(entry.state)));
  return json;
}

int ListFolders(const UndoOptions &options) {
  std::vector<UndoFolder> folders;
  const machine::Status listed = ListUndoFolders(HostFile(options.root), &folders);
  if (!listed)
    PrintError(options.root + " " + Words(listed) +
               (listed.error == ENOENT ? "; name the root of the restored volume" : ""));
  const auto isUnusable = [](const UndoFolder &undo) { return !undo.problem.empty(); };
  const int exitStatus = listed && std::none_of(folders.begin(), folders.end(), isUnusable) ? 0 : 1;
  if (options.json) {
    Json document = {{"root", options.root}, {"folders", Json::array()}};
    for (const UndoFolder &undo : folders) document["folders"].push_back(FolderJson(undo));
    AddEnd(TakeErrors(), exitStatus, &document);
    PrintDocument(document);
  } else if (listed) {
    for (const UndoFolder &undo : folders) PrintFolder(undo);
    if (folders.empty()) PrintLine("There is no injection to take back below " + options.root);
  }
  return exitStatus;
}

// --- Taking back ----------------------------------------------------------------------------------------------------

struct Outcome {
  const UndoEntry *entry;
  UndoState before, after;
};

// What an entry has become, for programs and for people.
const char *WordOf(const Outcome &outcome) {
  if (outcome.after != UndoState::kUnchanged) return WordOf(outcome.after);
  return outcome.before == UndoState::kUnchanged ? "unchanged" : "taken back";
}

void PrintOutcome(const Outcome &outcome) {
  const UndoEntry &entry = *outcome.entry;
  const std::string path = HostName(entry.path);
  if (outcome.after == UndoState::kChanged) {
    PrintLine("  left          " + path + ", changed since the injection", Style::kBad);
  } else if (outcome.after == UndoState::kInjected) {
    PrintLine("  not yet       " + path, Style::kBad);
  } else if (outcome.before == UndoState::kUnchanged) {
    PrintLine("  as it was     " + path);
  } else {
    PrintLine((entry.isNew ? "  removed       " : "  put back      ") + path, Style::kGood);
  }
}

void PrintTakenBack(const UndoFolder &undo, const std::vector<Outcome> &outcomes, bool good) {
  PrintLine(HostName(undo.folder), Style::kBold);
  if (!undo.entries.empty()) {
    PrintLine("  " + undo.program + ", " + Time(undo, "%Y-%m-%d %H:%M:%S UTC"), Style::kDim);
  }
  for (const Outcome &outcome : outcomes) PrintOutcome(outcome);
  if (!good) return;
  const bool any = Any(undo, UndoState::kInjected);
  PrintLine(any ? std::string("Taken back: the restored system is as it was before the injection") +
                      (undo.forgotHibernation ? ", but for the memory that --force dropped" : "")
                : "Nothing was left to take back; the folder is removed",
            Style::kGood);
}

int TakeBackFolder(const UndoOptions &options) {
  UndoFolder undo, left;
  machine::Status done = ReadUndoFolder(HostFile(options.folder), &undo);
  std::vector<Outcome> outcomes;
  if (done) {
    done = TakeBack(undo);
    // A folder that stays tells what is left to do: nothing once it has no manifest.
    const bool stays = !done && ReadUndoFolder(undo.folder, &left);
    const bool none = done || (stays && left.unfinished);
    const bool known = stays && left.entries.size() == undo.entries.size();
    for (std::size_t i = 0; i < undo.entries.size(); ++i) {
      const UndoState before = undo.entries[i].state;
      const UndoState after = none ? UndoState::kUnchanged : known ? left.entries[i].state : before;
      outcomes.push_back({&undo.entries[i], before, after});
    }
    if (!options.json) PrintTakenBack(undo, outcomes, static_cast<bool>(done));
  }
  if (!done) PrintError(options.folder + " " + Words(done));
  if (options.json) {
    Json document = HeadJson(undo);
    document["entries"] = Json::array();
    for (const Outcome &outcome : outcomes) document["entries"].push_back(EntryJson(*outcome.entry, WordOf(outcome)));
    AddEnd(TakeErrors(), done ? 0 : 1, &document);
    PrintDocument(document);
  }
  return done ? 0 : 1;
}

}  // namespace

int UndoCommand(const UndoOptions &options) {
  const bool isList = !options.root.empty();
  if (isList || !options.folder.empty()) {
    if (!CheckProc()) return 1;
    return isList ? ListFolders(options) : TakeBackFolder(options);
  }
  PrintError("name an undo folder, or a root with --list; see vxr undo --help");
  return kExitUsage;
}
