// The INF files of the running machine, each read from disk once while it does not change.
//
// Of every file that was read a few facts stay until the machine closes, enough to say whether it is a modern-style
// INF, what its [Version] holds and which devices it serves. Texts stay within a budget. So a search through thousands
// of files reads each once: only those that serve a device are asked for more than the facts.
//
// One thread at a time, as the run uses the set-up library.
#pragma once

#include <sys/stat.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/inf/inf_file.h"
#include "platform/machine/base/status.h"
#include "platform/machine/setup/driver_match.h"

namespace machine {

struct InfFacts {
  struct stat status = {};  // of the file when it was read
  bool modern = false;
  std::uint32_t problem = 0;  // not 0: the file is not INF text, for this reason...
  unsigned problemLine = 0;   // ...in this line
  std::string classGuid;      // as the file has it; empty: none
  // The lines of [Version] as key NUL value NUL. Tokens are replaced in what the machine itself relies on, Signature
  // and ClassGUID; in other values they are as they stand.
  std::string version;
  std::optional<std::vector<std::uint32_t>> served;  // numbers of the devices it has a driver for, once that was asked
  std::shared_ptr<InfFile> text;                     // dropped when memory gets scarce

  // Where the cache keeps the text; a size of 0: nowhere.
  std::size_t keptSize = 0;
  int keptUse = 0;
  std::list<std::shared_ptr<InfFacts>>::iterator place;
};
using InfFactsRef = std::shared_ptr<InfFacts>;

// The file's facts, read now when it is not known or has changed. Fails when it cannot be read. Its text goes to
// `*text`, when given, if it is at hand; else null.
Status FindInf(const char *windowsPath, InfFactsRef *facts, std::shared_ptr<InfFile> *text = nullptr);

// The file's text. Fails when it cannot be read again, and with ERROR_WRONG_INF_STYLE when it is not INF text.
Status LoadInfText(const InfFactsRef &facts, const char *windowsPath, std::shared_ptr<InfFile> *text);

// Takes into account what parsing has added to the text.
void RecountText(const InfFactsRef &facts);

// The devices that the file serves, once known in its facts; fails like LoadInfText.
Status FindServed(const InfFactsRef &facts, const char *windowsPath);

// Bare names, in the ANSI code page, of a directory's modern-style .inf files (any case of the ending) in name order
// without regard to case.
Status ListInfFiles(const char *windowsPath, std::vector<std::string> *names);

// How the machine reads INF files.
const InfSettings &CurrentInfSettings();

// The machine's inf directory, without backslash at its end.
std::string InfDirectory();

// Forgets what was read; called when the machine closes.
void CloseInfFiles();
// INF files read from disk since then.
std::uint64_t InfReads();

}  // namespace machine
