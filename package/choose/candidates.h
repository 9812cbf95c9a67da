// The drivers for one device, in the order in which Windows would take them, each with the reason when it cannot be.
#pragma once

#include <string>
#include <vector>

#include "package/choose/index.h"
#include "package/choose/rank.h"
#include "package/read/installation.h"

namespace package {

enum class Refusal {
  kNone,
  kDecoration,      // no section for this system
  kSectionMissing,  // the models or the install section is nowhere
  kFileMissing,     // a .sys that a service needs
  kArchitecture,    // such a file is for another processor
  kExcluded,        // the section excludes the device
  kDirective,       // a directive that the narrow reading does not know
  kCompressed,      // such a file is compressed or in a cabinet
  kNoBinary         // a service without a usable ServiceBinary, or whose file is no driver
};
// The fixed word: "decoration", "section-missing", "file-missing", "architecture", "excluded", "directive",
// "compressed", "no-binary"; null for kNone.
const char *RefusalWord(Refusal refusal);

struct Candidate {
  Rank rank;            // rank.path is the INF file's
  std::string models;   // the Models section taken; of one refused for its decoration the Manufacturer line's base
  std::string section;  // the install section taken, its suffix included; as written where none is there
  std::string writtenSection;  // as the model line names it
  std::string description, manufacturer, provider;
  std::string rawDescription, rawManufacturer;  // as written, tokens not replaced
  std::string id;                               // the device's, that the line lists
  std::size_t position = 0;                     // of the id on the line; 0 its hardware id
  std::vector<std::string> lineIds;             // all ids of the line, its hardware id first (which may be empty)
  std::string version;                          // as written
  std::string service;                          // of the function driver; empty: the device needs none
  std::string classGuid;                        // of [Version], as written
  bool inbox = false;
  Refusal refusal = Refusal::kNone;
  std::string refusalText;
};

inline constexpr std::size_t kFileCandidates = 64;  // of one INF file; the best by their ids

// All candidates for the device: one for each INF file, models line and id of the device that is that line's best, the
// best first (of equal rank inbox ones of the restored system behind packages, the running system's last), refused ones
// behind in the same order. Of a Manufacturer line that lists the device for other systems alone, the best of those.
// `unread` gets the files that could not be read again, and those with more lines for the device than are looked at; it
// may be the index's own.
std::vector<Candidate> FindCandidates(const Index &index, const DeviceIds &device, const IncludePlaces &places,
                                      std::vector<UnreadFile> *unread);

// Reads what a candidate that is not refused asks for. False, with the reason, when that cannot be read any more.
bool ReadCandidate(const Candidate &candidate, const Index &index, const IncludePlaces &places,
                   Installation *installation, std::string *reason);

}  // namespace package
