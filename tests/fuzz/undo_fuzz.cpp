// An undo folder from outside, taken back. Whatever its manifest says, nothing may change outside of the volume, and in
// it no more than a manifest says that names a file with its very bytes: such a file goes, or gets those of a kept
// copy.
//
// Input: a character whose bits choose the tree (1: the directory of the log is a link that leads out, 2: that of the
// drivers is), then the manifest, in which # and a digit stands for size and digest of one of the texts below.
#include <sys/stat.h>

#include <algorithm>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "rescue/undo.h"
#include "rescue/undo_manifest.h"
#include "tests/fuzz/fuzz_folder.h"

namespace {

namespace fs = std::filesystem;

const std::string kVolume = "restored/", kWindows = kVolume + "Windows/", kConfig = kWindows + "System32/config/",
                  kDrivers = kWindows + "System32/drivers/", kUndo = kWindows + "vxr-undo",
                  kFolder = kUndo + "/2026-11-25-1";
constexpr std::string_view kTexts[10] = {"hive before",  "hive after", "a log",   "driver before", "driver after",
                                         "a new driver", "a new INF",  "a guest", "unfinished",    ""};

rescue::FileState StateOf(std::string_view text) {
  machine::Descriptor file;
  rescue::FileState state = {text.size(), ""};
  Require(static_cast<bool>(machine::MakeMemoryFile(&file)), "no memory file");
  Require(static_cast<bool>(machine::WriteAt(file.fd, 0, text.data(), text.size())), "no memory file");
  Require(static_cast<bool>(machine::FileDigest(file.fd, text.size(), &state.digest)), "no digest");
  return state;
}

// --- The tree -------------------------------------------------------------------------------------------------------

void MakeDrivers(const fs::path &folder) {
  WriteWhole(folder / "new.sys", kTexts[5]);
  WriteWhole(folder / "old.sys", kTexts[4]);
  WriteWhole(folder / "guest.sys", kTexts[7]);
  WriteWhole(folder / ".new.sys.vxr-tmp", kTexts[8]);
  WriteWhole(folder / ".guest.vxr-tmp", kTexts[8]);
}

void MakeTree(const fs::path &at, unsigned flags) {
  for (const auto &entry : fs::directory_iterator(at)) fs::remove_all(entry);
  MakeDrivers(at / "outside/drivers");
  WriteWhole(at / "outside/logs.dir/run.log", kTexts[8]);
  WriteWhole(at / "outside/2", kTexts[3]);
  WriteWhole(at / (kConfig + "SYSTEM"), kTexts[1]);
  WriteWhole(at / (kConfig + "SYSTEM.LOG1"), kTexts[2]);
  WriteWhole(at / (kWindows + "INF/made/deep/new.inf"), kTexts[6]);
  WriteWhole(at / (kWindows + "INF/mixed/guest"), kTexts[7]);
  fs::create_directory(at / (kWindows + "INF/empty"));
  fs::create_directory_symlink(at / "outside", at / (kVolume + "out"));
  WriteWhole(at / (kFolder + "/1"), kTexts[0]);
  WriteWhole(at / (kFolder + "/2"), kTexts[3]);
  fs::create_symlink(at / "outside/2", at / (kFolder + "/3"));
  if ((flags & 1) != 0) {
    fs::create_directory_symlink(at / "outside/logs.dir", at / (kFolder + "/logs.dir"));
  } else {
    WriteWhole(at / (kFolder + "/logs.dir/run.log"), kTexts[8]);
  }
  if ((flags & 2) != 0) {
    fs::create_directory_symlink(at / "outside/drivers", at / (kWindows + "System32/drivers"));
  } else {
    MakeDrivers(at / kDrivers);
    fs::create_symlink(at / "outside/drivers/new.sys", at / (kDrivers + "link.sys"));
    fs::create_hard_link(at / "outside/drivers/old.sys", at / (kDrivers + "hard.sys"));
    Require(mkfifo((at / (kDrivers + "pipe.sys")).c_str(), 0600) == 0, "no pipe");
  }
}

std::string Expand(std::string_view input) {
  static const auto *states = [] {
    auto *made = new std::string[std::size(kTexts)];
    for (std::size_t i = 0; i < std::size(kTexts); ++i) {
      const rescue::FileState state = StateOf(kTexts[i]);
      made[i] = "\"size\":" + std::to_string(state.size) + ",\"sha256\":\"" + state.digest + '"';
    }
    return made;
  }();
  std::string text;
  for (std::size_t i = 0; i < input.size(); ++i) {
    const bool stands = input[i] == '#' && i + 1 < input.size() && input[i + 1] >= '0' && input[i + 1] <= '9';
    text += stands ? states[input[++i] - '0'] : std::string(1, input[i]);
  }
  return text;
}

// --- Promises -------------------------------------------------------------------------------------------------------

const rescue::UndoChange *FindChange(const rescue::UndoManifest &manifest, const std::string &path) {
  if (!path.starts_with(kVolume)) return nullptr;
  const auto names = [&](const rescue::UndoChange &change) { return kVolume + change.path == path; };
  const auto found = std::find_if(manifest.changes.begin(), manifest.changes.end(), names);
  return found == manifest.changes.end() ? nullptr : &*found;
}

// Beside a file that is named, ".NAME.vxr-tmp".
bool IsLeftOver(const rescue::UndoManifest &manifest, const std::string &path) {
  const std::string folder = path.substr(0, path.rfind('/') + 1), name = path.substr(folder.size()), end = ".vxr-tmp";
  if (!name.starts_with('.') || !name.ends_with(end)) return false;
  return FindChange(manifest, folder + name.substr(1, name.size() - 1 - end.size())) != nullptr;
}

bool MayGo(const rescue::UndoManifest &manifest, const std::string &path, const std::string &old) {
  const rescue::UndoChange *change = FindChange(manifest, path);
  if (change == nullptr) return IsLeftOver(manifest, path);
  if (change->kind == rescue::ChangeKind::kDirectory) return old == "d";
  return !change->before && old[0] == 'f' && StateOf(old.substr(1)) == change->after;
}

bool MayBecome(const rescue::UndoManifest &manifest, const std::string &path, const std::string &old,
               const std::string &now) {
  const rescue::UndoChange *change = FindChange(manifest, path);
  return change != nullptr && change->before && old[0] == 'f' && now[0] == 'f' &&
         StateOf(old.substr(1)) == change->after && StateOf(now.substr(1)) == change->before->state;
}

void CheckTree(const Tree &before, const Tree &after, const rescue::UndoManifest &manifest, bool mayChange) {
  for (const auto &[path, what] : after) Require(before.contains(path), "something was made", path);
  for (const auto &[path, old] : before) {
    const auto now = after.find(path);
    if (now != after.end() && now->second == old) continue;
    const bool own = path == kUndo || path.starts_with(kFolder);
    const bool may =
        now == after.end() ? own || MayGo(manifest, path, old) : MayBecome(manifest, path, old, now->second);
    Require(may, "something was changed", path);
    Require(mayChange || IsLeftOver(manifest, path), "it was changed all the same", path);
  }
}

// A manifest that was read is written as one that says the same.
void CheckText(const rescue::UndoManifest &manifest) {
  rescue::UndoManifest again;
  const std::string text = ManifestText(manifest);
  const machine::Status read = rescue::ReadManifestText(text, &again);
  Require(read && ManifestText(again) == text, "a manifest does not read back", read.text + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static unsigned made = ~0U;
  static Tree tree;
  if (size == 0) return 0;
  const fs::path &folder = FuzzFolder();
  const unsigned flags = data[0] & 3U;
  if (made != flags) {
    MakeTree(folder, flags);
    tree = TreeOf(folder);
    made = flags;
  }
  Tree before = tree;
  const std::string text = Expand({reinterpret_cast<const char *>(data) + 1, size - 1}),
                    name = kFolder + "/manifest.json";
  WriteWhole(folder / name, text);
  before[name] = "f" + text;

  rescue::UndoManifest manifest;
  const bool readable = static_cast<bool>(rescue::ReadManifestText(text, &manifest));
  if (readable) CheckText(manifest);
  rescue::UndoFolder undo;
  const machine::Status read = ReadUndoFolder(folder / kFolder, &undo);
  Require(readable || !read, "a damaged manifest was read");
  undo.folder = folder / kFolder;
  const machine::Status taken = TakeBack(undo);
  Require(readable || !taken, "a damaged manifest was taken back");
  Tree after = TreeOf(folder);
  const bool mayChange = taken.text.find("nothing was changed") == std::string::npos;
  CheckTree(before, after, manifest, readable && mayChange);
  Require(!taken || !after.contains(kFolder), "what was taken back is still there");
  after.erase(name);
  if (after != tree) made = ~0U;
  return 0;
}
