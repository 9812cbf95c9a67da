#include "tools/vxr/rescue/given_record.h"

#include <utility>

void UseGivenNames(const GivenDirectories &directories, RunRecord *record) {
  const auto give = [&directories](std::string *text) { *text = GivenText(directories, *text); };
  for (StatusLine &line : record->lines) {
    give(&line.text);
    give(&line.cause);
  }
  for (DeviceRecord &device : record->devices) {
    for (std::string &directory : device.directories) give(&directory);
    for (Candidate &candidate : device.candidates) {
      give(&candidate.inf);
      give(&candidate.text);
    }
    give(&device.infFile);
    if (!device.choice) continue;
    give(&device.choice->chosenInf);
    for (DriverCandidate &candidate : device.choice->candidates) {
      give(&candidate.inf);
      give(&candidate.text);
    }
    for (std::string &warning : device.choice->warnings) give(&warning);
    for (std::string &note : device.choice->notes) give(&note);
  }
  for (CopyRecord &copy : record->copies) {
    give(&copy.source);
    give(&copy.reason);
  }
  for (RefusedPath &unread : record->unreadInfs) {
    give(&unread.path);
    give(&unread.reason);
    unread.reason = UnreadText(unread.path, unread.reason);
  }
  for (RefusedPath &refused : record->refusedPaths) give(&refused.path);
  for (std::string &problem : record->problems) give(&problem);
}
