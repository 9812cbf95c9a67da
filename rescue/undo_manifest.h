// The manifest of an undo folder: what an injection changes, as a text for machines and as records.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"

namespace rescue {

enum class ChangeKind : std::uint8_t { kFile, kHive, kDirectory };

struct FileState {
  std::uint64_t size = 0;  // bytes
  std::string digest;      // SHA-256, 64 lower-case hexadecimal digits
  bool operator==(const FileState &) const = default;
};

struct OldFile {
  FileState state;
  std::string kept;  // its copy's name in the folder, a number; what else it has, such as its times, the copy has too
};

// A log beside a hive. An injection leaves it as it is, and the old hive is worth what it was only together with it.
struct HiveLogState {
  std::string name;
  FileState state;
  bool operator==(const HiveLogState &) const = default;
};

struct UndoChange {
  ChangeKind kind = ChangeKind::kFile;
  std::string path;               // from the volume's root, with slashes
  std::optional<OldFile> before;  // none: a new file; of a directory always, since it is a new one
  FileState after;                // not of a directory
  std::vector<HiveLogState> logs;
};

struct UndoManifest {
  std::int64_t time = 0;  // seconds since 1970
  std::string program;
  bool forgotHibernation = false;
  std::vector<UndoChange> changes;
};

inline constexpr const char *kManifestName = "manifest.json";

std::string ManifestText(const UndoManifest &manifest);
// Believes nothing: whoever could write to the volume may have written the text. Fails with what follows the folder's
// name.
machine::Status ReadManifestText(const std::string &text, UndoManifest *manifest);

// Whether the path stays below where it begins: names between slashes, none of them "." or "..".
bool IsPathBelow(const std::string &path);
// Whether a file of an undo folder has the name of a kept copy.
bool IsKeptName(const std::string &name);
// "2026-11-25T21:09:23Z".
std::string TimeText(std::int64_t time);

}  // namespace rescue
