// What the restored system's own files tell of it, and where the job contradicts them, itself, or the running machine.
// A run takes the job at its word; whoever wrote it wants to know. Files are only read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The restored system as a run takes it: the extension file's facts, and the job's in their place where it has any.
struct JobFacts {
  std::string key;  // the job's, below HKEY_LOCAL_MACHINE
  std::uint32_t major = 0, minor = 0, architecture = 0;
  bool known = false;                                // else the extension file that the job names cannot be read
  bool ownVersion = false, ownArchitecture = false;  // from the job
  bool recorded = false;                             // the rest is from an extension file, else of no source
  std::string systemDirectory;                       // Windows path, where it is reachable now; empty when not known
  std::vector<std::string> wrongValues;              // for people: values that do not mean what they seem to
  bool wrongVersion = false, wrongArchitecture = false;
};

// Of a job of the open machine.
JobFacts ReadJobFacts(std::uint32_t job);

// One line for people for each value that is wrong, and for a version that the restored system's files contradict. To
// be asked for before the run, which writes into both.
std::vector<std::string> FindContradictions(const JobFacts &facts);
// One line where the running machine's processor is of another kind, which may be why no driver fits; else empty.
std::string ProcessorContradiction(const JobFacts &facts);
