// Undo folders: what they keep, what is taken back, what is left, and what is refused.
#include "rescue/undo.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <map>
#include <set>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/host/digest.h"
#include "tests/support/hive_builder.h"
#include "tests/support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using rescue::UndoState;
using testing::HasSubstr;

std::string Digest(const fs::path &file) {
  std::string digest;
  const machine::Descriptor opened(::open(file.c_str(), O_RDONLY));
  EXPECT_TRUE(machine::FileDigest(opened.fd, fs::file_size(file), &digest));
  return digest;
}

const std::string kWindows = "restored/Windows/", kConfig = kWindows + "System32/config/",
                  kDrivers = kWindows + "System32/drivers/", kNew = kWindows + "INF/new\x80%41/",
                  kFolder = kWindows + "vxr-undo/2026-11-25-1";

// A restored system, and an injection that replaces its hive and a driver, and adds a driver and a directory with one.
class Undo : public MachineTest {
 protected:
  Undo() {
    WriteFile(kConfig + "SYSTEM", "");
    WriteHive(Host(kConfig + "SYSTEM"), SystemHiveValues(1));
    WriteFile(kConfig + "SYSTEM.LOG1", "a log");
    WriteFile(kDrivers + "old.sys", "of the backup");
    WriteFile(kDrivers + "other.sys", "not concerned");
    fs::create_directories(Host(kWindows + "INF"));
    const timespec times[2] = {{1000, 7}, {2000, 9}};
    EXPECT_EQ(utimensat(-1, Host(kDrivers + "old.sys").c_str(), times, 0), 0);
    EXPECT_EQ(chmod(Host(kDrivers + "old.sys").c_str(), 0440), 0);
    before = RestoredTree();
    after[kConfig + "SYSTEM"] = ReadFile(kConfig + "SYSTEM") + std::string(4096, 'h');
    after[kDrivers + "old.sys"] = "of the package";
    after[kDrivers + "new.sys"] = "new";
    after[kNew + "deep/new.inf"] = "also new";
  }
  ~Undo() override { machine::SetFaultPlan({}); }

  machine::Status Keep() {
    rescue::UndoPlan plan = {Host("restored"), Host("restored/Windows"), 1795642163, "vxr 1", {}};
    for (const std::string &directory : {kWindows + "INF", kNew.substr(0, kNew.size() - 1), kNew + "deep"}) {
      plan.changes.push_back({fs::path(directory).lexically_relative("restored"), true, "", 0});
    }
    for (const auto &[name, bytes] : after) {
      WriteFile("bytes", bytes);
      std::string path = fs::path(name).lexically_relative("restored");
      if (name == kDrivers + "old.sys") path = "windows/SYSTEM32/Drivers/OLD.sys";
      plan.changes.push_back({path, false, std::string(64, '0'), 1});  // overtaken by the next
      plan.changes.push_back({path, false, Digest(Host("bytes")), bytes.size()});
    }
    return KeepForUndo(plan, &folder);
  }
  // All of it, or these files of it.
  void Inject(const std::set<std::string> &only = {}) {
    for (const auto &[name, bytes] : after) {
      if (!only.empty() && !only.contains(name)) continue;
      fs::remove(Host(name));
      WriteFile(name, bytes);
    }
  }

  rescue::UndoFolder Read() {
    rescue::UndoFolder undo;
    const machine::Status read = ReadUndoFolder(Host(kFolder), &undo);
    EXPECT_TRUE(read) << Words(read);
    return undo;
  }
  // The one line of what was not taken back; empty when all was.
  std::string TakeBack() {
    rescue::UndoFolder undo;
    const machine::Status read = ReadUndoFolder(Host(kFolder), &undo);
    return Words(read ? rescue::TakeBack(undo) : read);
  }
  void ExpectAsBefore() {
    EXPECT_TRUE(RestoredTree() == before);
    EXPECT_FALSE(fs::exists(Host(kWindows + "vxr-undo")));
    EXPECT_FALSE(fs::exists(Host(kNew)));
  }

  fs::path folder;
  std::map<std::string, std::string> after;
  std::string before;
};

TEST_F(Undo, PutsBackEveryByteModeAndTime) {
  WriteFile("abc", "abc");
  EXPECT_EQ(Digest(Host("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  struct stat old, now;
  ASSERT_EQ(stat(Host(kDrivers + "old.sys").c_str(), &old), 0);
  const machine::Status kept = Keep();
  ASSERT_TRUE(kept) << Words(kept);
  EXPECT_EQ(folder, Host(kFolder));
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all) << "a hive holds secrets";
  for (const rescue::UndoEntry &entry : Read().entries) EXPECT_EQ(entry.state, UndoState::kUnchanged) << entry.path;
  Inject();
  WriteFile(kDrivers + ".new.sys.vxr-tmp", "of a run that was stopped");
  WriteFile(kFolder + "/logs.dir/run.log", "of the injection");
  const rescue::UndoFolder undo = Read();
  EXPECT_EQ(undo.volume, Host("restored"));
  EXPECT_EQ(undo.time, 1795642163);
  EXPECT_EQ(undo.program, "vxr 1");
  ASSERT_EQ(undo.entries.size(), 6u);
  for (const rescue::UndoEntry &entry : undo.entries) {
    const std::string name = "restored" / entry.path;
    EXPECT_EQ(entry.state, UndoState::kInjected) << name;
    EXPECT_EQ(entry.hive, name == kConfig + "SYSTEM");
    EXPECT_EQ(entry.isNew, name != kConfig + "SYSTEM" && name != kDrivers + "old.sys");
    EXPECT_TRUE(entry.directory || after.contains(name)) << name << " is spelled otherwise on disk";
  }
  EXPECT_EQ(TakeBack(), "");
  ExpectAsBefore();
  ASSERT_EQ(stat(Host(kDrivers + "old.sys").c_str(), &now), 0);
  EXPECT_EQ(now.st_mode, old.st_mode);
  EXPECT_EQ(now.st_mtim.tv_sec, 2000);
  EXPECT_EQ(now.st_mtim.tv_nsec, old.st_mtim.tv_nsec);
}

enum class Act { kWrite, kRemove, kLink, kLock };

struct Since {
  const char *name;
  Act act;
  std::string path;
  std::string says;    // empty: all is taken back
  bool partly = true;  // the rest is taken back
};
void PrintTo(const Since &since, std::ostream *out) { *out << since.name; }

class UndoSince : public Undo, public testing::WithParamInterface<Since> {
 protected:
  void Change() {
    const fs::path file = Host(GetParam().path), moved = Host("moved");
    switch (GetParam().act) {
      case Act::kWrite:
        fs::create_directories(file.parent_path());
        return WriteFile(GetParam().path, "of somebody");
      case Act::kRemove:
        fs::remove_all(file);
        return;
      case Act::kLink:
        fs::rename(file, moved);
        return fs::create_symlink(moved, file);
      case Act::kLock:
        lock = machine::Descriptor(::open(file.c_str(), O_RDONLY));
        EXPECT_EQ(flock(lock.fd, LOCK_EX), 0);
    }
  }
  machine::Descriptor lock;
};

TEST_P(UndoSince, IsNamedAndLeft) {
  ASSERT_TRUE(Keep());
  Inject();
  Change();
  const std::string changed = RestoredTree();
  const std::string said = TakeBack();
  if (GetParam().says.empty()) {
    EXPECT_EQ(said, "");
    return ExpectAsBefore();
  }
  EXPECT_THAT(said, HasSubstr(GetParam().says));
  EXPECT_TRUE(fs::exists(Host(kFolder) / "manifest.json"));
  EXPECT_EQ(RestoredTree() == changed, !GetParam().partly);
  if (!GetParam().partly) return;
  EXPECT_EQ(fs::exists(Host(kNew + "deep/new.inf")), false);
  EXPECT_EQ(TakeBack(), said) << "once more there is nothing else to do";
  EXPECT_FALSE(rescue::DropIfUnused(Host(kFolder)));
}

const std::string kNothing = "nothing was changed: Windows/System32/config/SYSTEM ",
                  kLeft = "changed since and was left: ";
const Since kSince[] = {
    {"Hive", Act::kWrite, kConfig + "SYSTEM", kNothing + "has changed since, so Windows may have started", false},
    {"HiveGone", Act::kRemove, kConfig + "SYSTEM", kNothing + "has changed since", false},
    {"Log", Act::kWrite, kConfig + "SYSTEM.LOG1", kNothing + "has changed since", false},
    {"NewLog", Act::kWrite, kConfig + "SYSTEM.LOG2", kNothing + "has changed since", false},
    {"KeptHive", Act::kWrite, kFolder + "/4", kNothing + "has a kept copy, 4, that is damaged", false},
    {"KeptHiveGone", Act::kRemove, kFolder + "/4", kNothing + "has a kept copy, 4, that cannot be opened", false},
    {"HiveInUse", Act::kLock, kConfig + "SYSTEM", kNothing + "is in use by another run", false},
    {"WindowsInUse", Act::kLock, kWindows, "is in use by another run", false},
    {"FolderInUse", Act::kLock, kFolder, "is in use by another run", false},
    {"DirectoryLink", Act::kLink, kWindows + "System32/drivers", "leads through a link", false},
    {"NewDriver", Act::kWrite, kDrivers + "new.sys", kLeft + "Windows/System32/drivers/new.sys"},
    {"OldDriver", Act::kWrite, kDrivers + "old.sys", kLeft + "Windows/System32/drivers/old.sys"},
    {"OldDriverGone", Act::kRemove, kDrivers + "old.sys", kLeft + "Windows/System32/drivers/old.sys"},
    {"DriverLink", Act::kLink, kDrivers + "new.sys", kLeft + "Windows/System32/drivers/new.sys"},
    {"Guest", Act::kWrite, kNew + "deep/guest", kLeft + "Windows/INF/new\x80%41/deep, Windows/INF/new\x80%41"},
    {"NewDriverGone", Act::kRemove, kDrivers + "new.sys", ""},
    {"NewDirectoryGone", Act::kRemove, kNew, ""},
};
INSTANTIATE_TEST_SUITE_P(Changes, UndoSince, testing::ValuesIn(kSince),
                         [](const auto &since) { return std::string(since.param.name); });

// Whoever could write to the volume may have written the manifest.
TEST_F(Undo, BelievesNoManifest) {
  const std::string path = "\"path\": \"Windows/System32/drivers/new.sys\"", other = "\"path\": \"../outside\"";
  std::string many;
  for (int i = 0; i < 4096; ++i) many += "1,";
  const struct {
    std::string from, to, says;
  } cases[] = {{path, other, "does not stay below"},
               {path, "\"path\": \"/etc/passwd\"", "does not stay below"},
               {path, "\"path\": \"a//b\"", "does not stay below"},
               {path, "\"path\": \"a%00b\"", "does not stay below"},
               {path, "\"path\": \"a%2\"", "does not stay below"},
               {path, "\"path\": \"%2E%2E/outside\"", "does not stay below"},
               {path, "\"path\": [\"a\"]", "does not stay below"},
               {path, "\"path\": \"Windows/System32/drivers/old.sys\"", "one path twice"},
               {path, "\"path\": \"link/file\"", "leads through a link"},
               {"\"kept\": \"4\"", "\"kept\": \"../4\"", "old state is none"},
               {"\"kept\": \"4\"", "\"kept\": \"manifest.json\"", "old state is none"},
               {"\"size\": 13", "\"size\": -13", "old state is none"},
               {"\"size\": 13", "\"size\": 1e99", "old state is none"},
               {"\"size\": 13", "\"size\": 18446744073709551615", "old state is none"},
               {"\"kind\": \"hive\"", "\"kind\": \"device\"", "unknown kind"},
               {"\"kind\": \"hive\"", "\"kind\": 7", "without a kind"},
               {"\"kind\": \"hive\"", "\"kind\": \"directory\"", "old state is none"},
               {"\"time\": \"2026", "\"time\": \"x", "a time that is none"},
               {"\"format\": 1", "\"format\": 2", "newer vxr"},
               {"\"format\": 1", "\"format\": null", "no format"},
               {"\"changes\": [", "\"changes\": {}, \"x\": [", "no changes"},
               {"\"changes\": [", "\"changes\": [1,", "does not stay below"},
               {"\"changes\": [", "\"changes\": [" + many, "too many changes"},
               {"{", "", "no JSON object"},
               {"{", std::string(17 << 20, ' ') + "{", "damaged manifest"}};
  ASSERT_TRUE(Keep());
  WriteFile("outside", "new");
  fs::create_symlink(folder.root_path(), Host("restored/link"));
  const std::string manifest = kFolder + "/manifest.json", good = ReadFile(manifest);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.to.substr(0, 80));
    std::string bad = good;
    ASSERT_NE(bad.find(c.from), std::string::npos) << c.from;
    WriteFile(manifest, bad.replace(bad.find(c.from), c.from.size(), c.to));
    rescue::UndoFolder undo;
    const machine::Status read = ReadUndoFolder(Host(kFolder), &undo);
    EXPECT_FALSE(read);
    EXPECT_THAT(read.text, HasSubstr(c.says));
    undo.folder = Host(kFolder);
    EXPECT_FALSE(rescue::TakeBack(undo));
  }
  EXPECT_EQ(ReadFile("outside"), "new");
  rescue::UndoFolder undo;
  for (const char *none : {"restored/Windows", "restored/absent", "outside"}) {
    EXPECT_FALSE(ReadUndoFolder(Host(none), &undo)) << none;
  }
}

TEST_F(Undo, KeepsAllOrNothing) {
  for (const char *step : {"file create", "file take over", "file flush", "file rename", "directory flush"}) {
    for (const unsigned nth : {1u, 2u}) {
      machine::SetFaultPlan({step, nth, false, 0});
      const machine::Status kept = Keep();
      const bool failed = machine::FaultsMet() != 0;
      machine::SetFaultPlan({});
      EXPECT_EQ(!kept, failed) << step;
      EXPECT_EQ(kept.text.starts_with("what an undo needs cannot be kept in "), failed) << kept.text;
      EXPECT_NE(failed, rescue::DropIfUnused(folder));
      ExpectAsBefore();
    }
  }
  fs::remove(Host(kDrivers + "old.sys"));
  fs::create_directory(Host(kDrivers + "old.sys"));
  EXPECT_THAT(Keep().text, HasSubstr("windows/SYSTEM32/Drivers/OLD.sys is a directory"));
  EXPECT_FALSE(fs::exists(Host(kWindows + "vxr-undo")));
}

TEST_F(Undo, CountsTheFoldersOfADay) {
  WriteFile(kFolder + "/1", "of a run that was stopped");
  EXPECT_EQ(TakeBack(), "");
  ExpectAsBefore();
  WriteFile(kFolder + "/1", "of another one");
  WriteFile(kWindows + "vxr-undo/2026-11-25-9/manifest.json", "damaged");
  WriteFile(kFolder + "/.manifest.json.vxr-tmp", "begun");
  WriteFile(kWindows + "vxr-undo/2026-11-25-10x/2025", "of somebody");
  ASSERT_TRUE(Keep());
  EXPECT_EQ(folder, Host(kWindows + "vxr-undo/2026-11-25-10"));
  EXPECT_FALSE(fs::exists(Host(kFolder))) << "a run that was stopped had changed nothing";
  for (const char *root : {"restored", "restored/Windows"}) {
    std::vector<rescue::UndoFolder> folders;
    ASSERT_TRUE(ListUndoFolders(Host(root), &folders));
    ASSERT_EQ(folders.size(), 3u);
    EXPECT_TRUE(folders[0].unfinished);
    EXPECT_TRUE(fs::exists(folders[0].folder / "2025"));
    EXPECT_THAT(folders[1].problem, HasSubstr("no JSON object"));
    EXPECT_EQ(folders[2].folder, folder);
    EXPECT_EQ(folders[2].entries.size(), 6u);
  }
  std::vector<rescue::UndoFolder> none;
  EXPECT_FALSE(ListUndoFolders(Host("absent"), &none));
  EXPECT_FALSE(ListUndoFolders(Host(kWindows + "INF"), &none));
}

TEST_F(Undo, TellsWhichComesFirst) {
  ASSERT_TRUE(Keep());
  Inject();
  after[kConfig + "SYSTEM"] += "of the second";
  after[kDrivers + "second.sys"] = "second";
  ASSERT_TRUE(Keep());
  rescue::UndoFolder second;
  for (const bool stopped : {true, false}) {
    Inject(stopped ? std::set{kDrivers + "second.sys"} : std::set<std::string>());
    EXPECT_EQ(Read().later, "2026-11-25-2");
    EXPECT_THAT(TakeBack(), HasSubstr("SYSTEM is another injection's too, 2026-11-25-2; take that one back first"));
    second = {};
    ASSERT_TRUE(ReadUndoFolder(folder, &second));
    EXPECT_EQ(second.later, "");
  }
  const std::string hive = ReadFile(kConfig + "SYSTEM");
  WriteFile(kConfig + "SYSTEM", "of Windows");
  EXPECT_THAT(TakeBack(), HasSubstr("has changed since, so Windows may have started"));
  WriteFile(kConfig + "SYSTEM", hive);
  EXPECT_TRUE(rescue::TakeBack(second));
  EXPECT_EQ(TakeBack(), "");
  ExpectAsBefore();
}

// What is there of an injection, and whether it was stopped: killed before its first file, before its hive, with all
// done, in the middle of being taken back; with a log, then a file that are not its own.
TEST_F(Undo, KnowsWhatWasStopped) {
  const struct {
    std::set<std::string> there;
    std::string changed;
    bool stopped;
  } cases[] = {{{}, "", false},
               {{kDrivers + "new.sys"}, "", true},
               {{kDrivers + "new.sys", kDrivers + "old.sys", kNew + "deep/new.inf"}, "", true},
               {{kConfig + "SYSTEM"}, "", false},
               {{kDrivers + "old.sys"}, kConfig + "SYSTEM.LOG2", false},
               {{kDrivers + "old.sys"}, kDrivers + "new.sys", false}};
  ASSERT_TRUE(Keep());
  for (const auto &c : cases) {
    SCOPED_TRACE(c.changed + ", " + std::to_string(c.there.size()));
    if (!c.there.empty()) Inject(c.there);
    if (!c.changed.empty()) WriteFile(c.changed, "of somebody");
    EXPECT_EQ(rescue::FindStopped(Host("restored/Windows")), c.stopped ? folder : fs::path());
    if (!c.changed.empty()) {
      EXPECT_NE(TakeBack(), "");
      fs::remove(Host(c.changed));
    }
    EXPECT_EQ(TakeBack(), "");
    ExpectAsBefore();
    ASSERT_TRUE(Keep());
  }
  // Neither one below another directory, which any user of that Windows may have made, nor one behind a link.
  Inject({kDrivers + "new.sys"});
  fs::create_directories(Host(kWindows + "Temp"));
  fs::rename(Host(kWindows + "vxr-undo"), Host(kWindows + "Temp/vxr-undo"));
  fs::create_directories(Host(kWindows + "vxr-undo"));
  fs::create_directory_symlink("../Temp/vxr-undo/2026-11-25-1", Host(kFolder));
  rescue::UndoFolder undo;
  std::vector<rescue::UndoFolder> folders;
  EXPECT_EQ(rescue::FindStopped(Host("restored/Windows")), fs::path());
  EXPECT_FALSE(ReadUndoFolder(Host(kFolder), &undo));
  EXPECT_FALSE(ReadUndoFolder(Host(kWindows + "Temp/vxr-undo/2026-11-25-1"), &undo));
  EXPECT_TRUE(ListUndoFolders(Host("restored"), &folders));
  EXPECT_TRUE(folders.empty());
}

TEST_F(Undo, RefusesAFolderThatLostItsManifest) {
  ASSERT_TRUE(Keep());
  Inject();
  fs::remove(Host(kFolder) / "manifest.json");
  WriteFile(kFolder + "/logs.dir/run.log", "of the injection");
  const std::string left = RestoredTree();
  EXPECT_THAT(TakeBack(), HasSubstr("has lost its manifest.json"));
  EXPECT_EQ(RestoredTree(), left);
  ASSERT_TRUE(Keep()) << "the next one leaves it as well";
  EXPECT_TRUE(fs::exists(Host(kFolder + "/4")));
}

}  // namespace
