// Hives that were not closed cleanly: which logs bring them up to date, what is refused, and that no log can be applied
// to what is saved.
#include "platform/machine/hive/hive_recovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/marvin.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/registry/registry.h"
#include "tests/support/hive_builder.h"
#include "tests/support/hive_log_builder.h"
#include "tests/support/hive_reader.h"
#include "tests/support/hive_structure.h"
#include "tests/support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using machine::WriteLe32;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;

constexpr const char *kDirtyHive = "D:\\config\\SYSTEM";
constexpr const char *kState = "SYSTEM_ORG\\State";

// The hive after `mark` writes, each of which changes the value Mark alone.
Bytes Version(uint32_t mark) {
  std::vector<HiveValue> values = SystemHiveValues(1);
  values.push_back(NumberValue("State", "Mark", mark));
  return BuildHive(values);
}

// The write that leads to that version.
LogEntrySpec To(uint32_t mark) { return {ChangedPages(Version(mark - 1), Version(mark))}; }

Bytes NewLog(uint32_t first, uint32_t fromMark, uint32_t toMark) {
  std::vector<LogEntrySpec> entries;
  for (uint32_t mark = fromMark; mark <= toMark; ++mark) entries.push_back(To(mark));
  return BuildNewLog(Version(0), first, entries);
}

// The hive and what lies beside it; a log that is empty is not there, unless `emptyLogs` says so.
struct Files {
  Bytes hive = Version(0);
  Bytes log1, log2, log;
  bool emptyLogs = false;
};

Bytes OldLog(uint32_t number, uint32_t mark) {
  return BuildOldLog(Version(0), number, ChangedPages(Version(0), Version(mark)));
}

void SetTime(Bytes *file, size_t at, uint64_t time) {
  machine::WriteLe64(file->data() + at, time);
  SetHiveChecksum(file);
}

struct Case {
  const char *name;
  void (*arrange)(Files *files);  // from a dirty hive, 5/4
  uint32_t mark;                  // after the replay; ignored where it is refused
  const char *says;               // what was replayed, or the reason of a refusal
  uint32_t number;                // both sequence numbers after an injection; 0: refused
};

const Case kCases[] = {
    {"OneLog", [](Files *f) { f->log1 = NewLog(4, 1, 2); }, 2, "replayed 2 entries from one log", 6},
    {"NumbersThatRanOn", [](Files *f) { f->log1 = NewLog(287, 1, 2); }, 2, "replayed 2 entries from one log", 289},
    {"TwoLogs",
     [](Files *f) {
       f->log1 = NewLog(287, 1, 2);
       f->log2 = NewLog(289, 3, 3);
     },
     3, "replayed 3 entries from two logs", 290},
    {"FirstLogIsTheLater",
     [](Files *f) {
       f->log1 = NewLog(289, 3, 3);
       f->log2 = NewLog(287, 1, 2);
     },
     3, "replayed 3 entries from two logs", 290},
    {"NumbersThatWrap",
     [](Files *f) {
       SetSequence(&f->hive, 0xFFFFFFFF, 0xFFFFFFFE);
       f->log1 = NewLog(0, 3, 3);
       f->log2 = NewLog(0xFFFFFFFE, 1, 2);
     },
     3, "replayed 3 entries from two logs", 1},
    {"GapBetweenLogs",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 1);
       f->log2 = NewLog(9, 2, 3);
     },
     1, "replayed 1 entry from one log", 11},
    {"LaterLogOverwritesAPageOfTheEarlier",
     [](Files *f) {
       f->log1 = BuildNewLog(Version(0), 4, {{ChangedPages(Version(0), Version(7))}});
       f->log2 = BuildNewLog(Version(0), 5, {{ChangedPages(Version(0), Version(3))}});
     },
     3, "replayed 2 entries from two logs", 6},
    {"LogFromBeforeTheHive",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 1);
       f->log2 = NewLog(3, 7, 7);
     },
     1, "replayed 1 entry from one log", 6},
    {"OnlyALogFromBefore", [](Files *f) { f->log1 = NewLog(3, 1, 2); }, 0,
     "LOG1 is older than the hive (3 is before 4)", 0},
    {"EntriesOfAnEarlierRound",
     [](Files *f) {
       f->log1 = NewLog(20, 1, 1);
       const Bytes stale = NewLog(14, 7, 9);
       f->log1.insert(f->log1.end(), stale.begin() + 512, stale.end());
     },
     1, "replayed 1 entry from one log", 21},
    {"LaterEntryBehindAGap",
     [](Files *f) {
       f->log1 = NewLog(20, 1, 1);
       const Bytes other = NewLog(30, 7, 7);
       f->log1.insert(f->log1.end(), 512, 0);
       f->log1.insert(f->log1.end(), other.begin() + 512, other.end());
     },
     1, "replayed 1 entry from one log", 31},
    {"EmptyLogBesideIt",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       f->emptyLogs = true;
     },
     2, "replayed 2 entries from one log", 6},
    {"LaterLogWithoutAnEntry",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 1);
       f->log2 = NewLog(5, 2, 2);
       f->log2.back() ^= 1;
     },
     1, "replayed 1 entry from one log", 6},
    {"EarlierLogWithoutAnEntry",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 1);
       f->log1.back() ^= 1;
       f->log2 = NewLog(5, 2, 2);
     },
     0, "SYSTEM.LOG1 stops before its first entry", 0},
    {"NoLog", [](Files *) {}, 0, "there is no log beside it", 0},
    {"EmptyLogs", [](Files *f) { f->emptyLogs = true; }, 0, "SYSTEM.LOG1 is empty, SYSTEM.LOG2 is empty", 0},
    {"LogOfNoise", [](Files *f) { f->log1 = Bytes(2000, 'n'); }, 0, "LOG1 does not begin with regf", 0},
    {"ShortLog", [](Files *f) { f->log1 = Bytes(100, 'r'); }, 0, "LOG1 is too short", 0},
    {"LogWithAWrongChecksum",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       f->log1[40] ^= 1;
     },
     0, "LOG1 has a wrong checksum", 0},
    {"LogNotWrittenToItsEnd",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       SetSequence(&f->log1, 4, 3);
     },
     0, "LOG1 was not written to its end (its sequence numbers are 4 and 3)", 0},
    {"LogOfUnknownType",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       WriteLe32(&f->log1[28], 3);
       SetHiveChecksum(&f->log1);
     },
     0, "LOG1 is no log (its type is 3)", 0},
    {"BinsThatGrow",
     [](Files *f) {
       std::vector<HiveValue> values = SystemHiveValues(1);
       values.push_back(NumberValue("State", "Mark", 7));
       values.push_back(TextValue("State", "Zz", std::string(6000, 'z')));
       const Bytes grown = BuildHive(values);
       f->log1 = BuildNewLog(grown, 4, {{ChangedPages(Version(0), grown)}});
     },
     7, "replayed 1 entry from one log", 6},
    {"BadBinAfterwards",
     [](Files *f) {
       f->log1 = BuildNewLog(Version(0), 4, {{{{0x1000, Bytes(4096, 'x')}}}});
     },
     0, "was brought up to date from its logs, but then is damaged: the bin at 0x1000 has no signature", 0},
    {"BadCellAfterwards",
     [](Files *f) {
       LogEntrySpec entry = To(1);
       for (LogWrite &page : entry.pages) WriteLe32(&page.bytes[32], 12);
       f->log1 = BuildNewLog(Version(0), 4, {entry});
     },
     0, "has the impossible size 12", 0},
    {"BinsSizeBeyondTheFile",  // valid, and the zeros that come of it are no bins
     [](Files *f) {
       LogEntrySpec entry = To(1);
       entry.binsSize = 0x7FFFF000;
       f->log1 = BuildNewLog(Version(0), 4, {entry});
     },
     0, "but then is damaged: the bin at", 0},
    {"LostBaseBlock",
     [](Files *f) {
       std::memset(f->hive.data(), 0, 512);
       f->log1 = NewLog(287, 1, 2);
       f->log2 = NewLog(289, 3, 3);
     },
     3, "replayed 1 entry from one log", 290},
    {"LostBaseBlockWithoutLog", [](Files *f) { f->hive[300] ^= 1; }, 0, "is damaged: its checksum is", 0},
    {"LostBaseBlockEarlierLogWithoutAnEntry",
     [](Files *f) {
       f->hive[300] ^= 1;
       f->log1 = NewLog(4, 1, 1);
       f->log1.back() ^= 1;
       f->log2 = NewLog(5, 2, 2);
     },
     0, "its logs cannot repair it: SYSTEM.LOG1 stops before its first entry", 0},
    {"OldFormat", [](Files *f) { f->log1 = OldLog(5, 1); }, 1, "replayed 1 entry from one log", 6},
    {"OldFormatInTheOnlyLog", [](Files *f) { f->log = OldLog(3, 1); }, 1, "replayed 1 entry from one log", 6},
    {"OldFormatOfAnotherTime",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       SetTime(&f->log1, 12, 77);
     },
     0, "LOG1 belongs to another state of the hive", 0},
    {"OldFormatSecondIsLater",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       f->log2 = OldLog(6, 2);
     },
     2, "replayed 1 entry from one log", 7},
    {"OldFormatSecondFits",
     [](Files *f) {
       f->log1 = OldLog(6, 1);
       SetTime(&f->log1, 12, 77);
       f->log2 = OldLog(5, 2);
     },
     2, "replayed 1 entry from one log", 7},
    {"OldFormatCutOff",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       f->log1.resize(f->log1.size() - 512);
     },
     0, "LOG1 is cut off within its pages", 0},
    {"OldFormatWithoutPages",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       f->log1[512] = 'd';
     },
     0, "LOG1 has no list of pages", 0},
    {"OldFormatBinsOfTwoGigabytes",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       WriteLe32(&f->log1[40], 0x80000000);
       SetHiveChecksum(&f->log1);
     },
     0, "LOG1 has the impossible bins size 2147483648", 0},
    {"OldFormatLostBaseBlock",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       std::memset(f->hive.data(), 0, 512);
     },
     1, "replayed 1 entry from one log", 6},
    {"OldFormatLostBaseBlockOfAnotherTime",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       SetTime(&f->log1, 12, 77);
       std::memset(f->hive.data(), 0, 512);
     },
     0, "LOG1 belongs to another state", 0},
    {"BothFormats",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       f->log = OldLog(5, 7);
     },
     2, "replayed 2 entries from one log", 6},
    {"OldLogFitsBesideANewOneFromBefore",
     [](Files *f) {
       f->log1 = NewLog(3, 1, 2);
       f->log = OldLog(5, 7);
     },
     0, "SYSTEM.LOG has the format of an earlier system", 0},
    {"OldLogFitsBesideANewOneThatIsDamaged",
     [](Files *f) {
       f->log1 = NewLog(4, 1, 2);
       f->log1[40] ^= 1;
       f->log = OldLog(5, 7);
     },
     0, "SYSTEM.LOG has the format of an earlier system", 0},
    {"OldFormatOfWindows2000",
     [](Files *f) {
       f->log = OldLog(3, 1);
       WriteLe32(&f->log[28], 2);
       SetHiveChecksum(&f->log);
     },
     1, "replayed 1 entry from one log", 6},
    {"EntriesBehindAnOldLog",
     [](Files *f) {
       f->log1 = OldLog(5, 1);
       const Bytes stale = NewLog(60, 7, 7);
       f->log1.insert(f->log1.end(), stale.begin() + 512, stale.end());
     },
     1, "replayed 1 entry from one log", 61},
    {"CleanHive",
     [](Files *f) {
       SetSequence(&f->hive, 5, 5);
       f->log1 = NewLog(5, 1, 2);
     },
     0, "none", 7},
};

class RecoveredHive : public MachineTest, public testing::WithParamInterface<Case> {
 protected:
  void Put(const char *name, const Bytes &bytes) { WriteFile(Config(name), std::string(bytes.begin(), bytes.end())); }
  static std::string Config(const char *name) { return std::string("restored/config/") + name; }
  Bytes Get(const char *name) const {
    const std::string text = ReadFile(Config(name));
    return {text.begin(), text.end()};
  }
  std::string Detail(uint32_t kind) const {
    for (const MachineEvent &event : events) {
      if (event.kind == kind) return event.detail;
    }
    return "none";
  }
  uint32_t Mark(bool set, uint32_t mark = 0) {
    HKEY key = nullptr;
    EXPECT_EQ(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, kState, &key), ERROR_SUCCESS);
    DWORD size = sizeof mark;
    auto *data = reinterpret_cast<BYTE *>(&mark);
    EXPECT_EQ(set ? platform::RegSetValueExA(key, "Mark", 0, REG_DWORD, data, size)
                  : platform::RegQueryValueExA(key, "Mark", nullptr, nullptr, data, &size),
              ERROR_SUCCESS);
    platform::RegCloseKey(key);
    return mark;
  }
  // Should that hive become dirty again, nothing that lies beside it may be taken for its log.
  void ExpectNoLogApplies(const Bytes &hive, const Files &files) {
    Bytes dirty = hive;
    SetSequence(&dirty, machine::ReadLe32(&hive[4]) + 1, machine::ReadLe32(&hive[8]));
    std::vector<machine::HiveLog> logs;
    for (const Bytes *bytes : {&files.log1, &files.log2, &files.log}) {
      logs.emplace_back().bytes = *bytes;
      machine::ReadHiveLog(&logs.back());
    }
    const machine::BaseBlock head = machine::ReadBaseBlock(dirty.data());
    const auto plan = machine::PlanRecovery(head, machine::ReadLe64(&hive[machine::kFirstBinTime]), logs);
    EXPECT_NE(plan.refusal, "");
    for (size_t i = 0; i < logs.size(); ++i) {
      if (!logs[i].flaw.empty()) continue;
      EXPECT_THAT(plan.verdicts[i].reason,
                  testing::AnyOf(HasSubstr("older than"), HasSubstr("another state"), HasSubstr("an earlier system")));
    }
  }
};

TEST_P(RecoveredHive, IsWhatWindowsWouldSeeOrIsRefused) {
  Files files;
  SetSequence(&files.hive, 5, 4);
  GetParam().arrange(&files);
  Put("SYSTEM", files.hive);
  // Names have no case.
  const std::pair<const char *, const Bytes &> logs[] = {{"SYSTEM.LOG1", files.log1},
                                                         {files.emptyLogs ? "SYSTEM.LOG2" : "system.log2", files.log2},
                                                         {"SYSTEM.LOG", files.log}};
  for (const auto &[name, bytes] : logs) {
    if (!bytes.empty() || files.emptyLogs) Put(name, bytes);
  }
  Open();
  if (GetParam().number == 0) {
    EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 1);
    EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr(GetParam().says));
    EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("restore ")) << "it says what to do";
    EXPECT_EQ(Get("SYSTEM"), files.hive);
  } else {
    ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 0) << Detail(VXRMACHINE_HIVE_REFUSED);
    EXPECT_EQ(Detail(VXRMACHINE_HIVE_REPLAYED), GetParam().says);
    EXPECT_EQ(Mark(false), GetParam().mark);
    EXPECT_EQ(Get("SYSTEM"), files.hive) << "the replay is in memory until something is saved";
    Mark(true, 99);
    ASSERT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0) << Detail(VXRMACHINE_HIVE_NOT_SAVED);
    const Bytes saved = Get("SYSTEM");
    EXPECT_EQ(HiveProblem(saved), "");
    EXPECT_EQ(machine::ReadLe32(&saved[4]), GetParam().number);
    ExpectNoLogApplies(saved, files);
    EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 0);
    EXPECT_EQ(Mark(false), 99u);
    EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
  }
  for (const auto &[name, bytes] : logs) {
    if (!bytes.empty()) {
      EXPECT_EQ(Get(name), bytes);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Logs, RecoveredHive, testing::ValuesIn(kCases),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(RecoveredHive, IsRefusedWhereItIsUnclearWhichFileIsItsLog) {
  Bytes hive = Version(0);
  Put("SYSTEM", hive);
  Put("SYSTEM.LOG1", NewLog(4, 1, 1));
  Put("system.log1", NewLog(4, 2, 2));
  Open();
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 1) << "also when it is clean: what is saved must outdo both";
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("has two logs of one name, SYSTEM.LOG1 and system.log1"));
  events.clear();
  fs::remove(Host(Config("system.log1")));
  fs::remove(Host(Config("SYSTEM.LOG1")));
  Put("SYSTEM.LOG1", {});
  fs::resize_file(Host(Config("SYSTEM.LOG1")), uintmax_t{2} << 30);
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 1) << "not only when it is to be saved";
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("SYSTEM.LOG1 is larger than any log"));
  events.clear();
  fs::remove(Host(Config("SYSTEM.LOG1")));
  fs::create_directory(Host(Config("SYSTEM.LOG2")));
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kDirtyHive), 1);
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("SYSTEM.LOG2 is a directory"));
}

// Each way in which an entry can be wrong ends what is applied, hashes right or not.
TEST(HiveLog, EndsBeforeTheFirstEntryThatIsNotWhole) {
  const struct {
    const char *what;
    size_t at;  // of a 32-bit number in the entry
    uint32_t number;
    bool sealed;  // with hashes that fit
  } cases[] = {
      {"signature", 0, 0x45764C48, true},
      {"size of zero", 4, 0, true},
      {"size of no multiple", 4, 5000, true},
      {"size past the end", 4, 0x40000000, true},
      {"another number", 12, 7, true},
      {"bins of no size", 16, 0, true},
      {"bins of no multiple", 16, 5000, true},
      {"bins of two gigabytes", 16, 0x80000000, true},
      {"no page", 20, 0, true},
      {"more pages than room", 20, 600, true},
      {"pages whose size overflows", 20, 0x20000001, true},
      {"page outside the bins", 40, 0x7FFFF000, true},
      {"page whose end overflows", 40, 0xFFFFF000, true},
      {"page longer than the entry", 44, 8192, true},
      {"page whose size overflows", 44, 0xFFFFF000, true},
      {"header that does not fit its hash", 8, 1, false},
      {"body that does not fit its hash", 100, 1, false},
  };
  const Bytes log = NewLog(4, 1, 3);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    machine::HiveLog read;
    read.bytes = log;
    const size_t second = EntryOffset(log, 1);
    WriteLe32(&read.bytes[second + c.at], c.number);
    if (c.sealed) SealEntry(&read.bytes, second);
    machine::ReadHiveLog(&read);
    EXPECT_EQ(read.flaw, "");
    EXPECT_EQ(read.entries.size(), 1u);
    EXPECT_EQ(read.pages.size(), read.entries[0].pageCount);
  }
}

Bytes Rebuild(const Bytes &hive, const std::vector<machine::HiveLog> &logs) {
  const machine::Recovery plan = machine::PlanRecovery(machine::ReadBaseBlock(hive.data()), 0, logs);
  machine::Descriptor file, recovered;
  EXPECT_TRUE(machine::MakeMemoryFile(&file) && machine::MakeMemoryFile(&recovered));
  EXPECT_TRUE(machine::WriteAt(file.fd, 0, hive.data(), hive.size()));
  EXPECT_TRUE(machine::ApplyRecovery(plan, file.fd, hive.size(), recovered.fd));
  Bytes bytes(hive.size());
  EXPECT_TRUE(machine::ReadAt(recovered.fd, 0, bytes.data(), bytes.size()));
  return bytes;
}

// Pages of any length, put in wherever they begin and end in the windows in which a hive is rebuilt; of two logs the
// later one holds.
TEST(HiveLog, PutsLongPagesIn) {
  std::vector<HiveValue> values;
  for (int i = 0; i < 4000; ++i) values.push_back(TextValue("Key" + std::to_string(i), "Text", std::string(80, 'x')));
  const Bytes whole = BuildHive(values);
  constexpr size_t kFrom = 0x3F000, kTo = 0x91000;
  ASSERT_GT(whole.size(), 4096 + kTo);
  const auto at = [&](size_t offset) { return whole.begin() + static_cast<std::ptrdiff_t>(4096 + offset); };
  Bytes hive = whole;
  std::fill(hive.begin() + 4096 + kFrom, hive.begin() + 4096 + kTo, 0xEE);
  SetSequence(&hive, 5, 4);
  const Bytes wrong(0x3000, 0xDD);
  std::vector<machine::HiveLog> logs(2);
  logs[0].bytes = BuildNewLog(hive, 4, {{{{kFrom, Bytes(at(kFrom), at(0x80000))}, {0x7F000, wrong}}}});
  logs[1].bytes = BuildNewLog(hive, 5, {{{{0x7F000, Bytes(at(0x7F000), at(kTo))}}}});
  for (machine::HiveLog &log : logs) machine::ReadHiveLog(&log);
  Bytes recovered = Rebuild(hive, logs);
  EXPECT_EQ(HiveProblem(recovered), "");
  EXPECT_TRUE(std::equal(recovered.begin() + 4096, recovered.end(), whole.begin() + 4096, whole.end()));
}

// Flag 1 says that the transaction manager holds the hive; it comes from the entry, the others stay.
TEST(HiveLog, GivesTheHiveItsFlag) {
  for (const uint32_t flag : {0u, 1u}) {
    Bytes hive = Version(0);
    WriteLe32(&hive[machine::kFlagsOffset], 2 | (1 - flag));
    SetSequence(&hive, 5, 4);
    LogEntrySpec entry = To(1);
    entry.flags = flag;
    std::vector<machine::HiveLog> logs(1);
    logs[0].bytes = BuildNewLog(hive, 4, {entry});
    machine::ReadHiveLog(logs.data());
    hive = Rebuild(hive, logs);
    EXPECT_EQ(machine::ReadLe32(&hive[machine::kFlagsOffset]), 2 | flag);
    EXPECT_EQ(HiveProblem(hive), "");
  }
}

TEST(MarvinHash, GivesPublishedValues) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  const std::string head("HvLE\0\x2e\0\0\1\0\0\0\x3f\x08\0\0\0\x30\xbd\0\2\0\0\0\x8a\xb0\x6b\x64\x61\x04\xc2\xd7", 32);
  const struct {
    uint64_t seed;
    std::string data;
    uint64_t hash;
  } cases[] = {
      {0xD53CD9CECD0893B7, "abc", 0x22c74339492769bf},
      {0x0DDDDEEEEFFFF000, "abcdefghijklmnopqrstuvwxyz", 0xa128eb7e7260aca2},
      {machine::kLogSeed, "", 0xb39efca403966e08},
      {machine::kLogSeed, "abc", 0xb9cf3dfca41914f7},
      {machine::kLogSeed, "abcd", 0x20094fb11a6cd086},
      {machine::kLogSeed, all, 0xe8f3685710a60b65},
      {machine::kLogSeed, head, 0xc6ee2d15579fd132},
  };
  for (const auto &c : cases) EXPECT_EQ(machine::MarvinHash(c.seed, c.data.data(), c.data.size()), c.hash) << c.data;
}

// Real hives of systems that were running. How many keys and values each has then is known.
TEST_F(RecoveredHive, OfRealSystemsHasTheKeysOfItsLogs) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  const struct {
    const char *hive, *log1, *log2, *says;
    uint32_t number;
    size_t keys, values;
  } samples[] = {
      {"transactions_NTUSER.DAT", "transactions_ntuser.dat.log1", "transactions_ntuser.dat.log2",
       "replayed 23 entries from one log", 589, 3105, 4695},
      {"UsrClass.dat", "UsrClass.dat.LOG1", "UsrClass.dat.LOG2", "replayed 14 entries from two logs", 301, 6238, 12531},
  };
  for (const auto &sample : samples) {
    SCOPED_TRACE(sample.hive);
    fs::create_directories(Host("restored/config"));
    for (const char *file : {sample.hive, sample.log1, sample.log2}) {
      const std::string packed = (fs::path(corpus) / "hives" / file).string();
      ASSERT_EQ(std::system(("xz -dkc '" + packed + ".xz' > '" + Host(Config(file)).string() + "'").c_str()), 0);
    }
    Open();
    ASSERT_EQ(machine::MountHive("SYSTEM_ORG", (std::string("D:\\config\\") + sample.hive).c_str()), 0);
    EXPECT_EQ(Detail(VXRMACHINE_HIVE_REPLAYED), sample.says);
    HKEY key = nullptr;
    ASSERT_EQ(platform::RegCreateKeyA(HKEY_LOCAL_MACHINE, "SYSTEM_ORG\\Added", &key), ERROR_SUCCESS);
    platform::RegCloseKey(key);
    ASSERT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0) << Detail(VXRMACHINE_HIVE_NOT_SAVED);
    const Bytes saved = Get(sample.hive);
    EXPECT_EQ(HiveProblem(saved), "");
    EXPECT_EQ(machine::ReadLe32(&saved[4]), sample.number);
    const std::vector<std::string> lines = ExportHive(Host(Config(sample.hive)));
    if (!lines.empty()) {
      const auto count = [&](const char *first) {
        return std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
          return !line.empty() && std::strchr(first, line[0]) != nullptr;
        });
      };
      EXPECT_EQ(static_cast<size_t>(count("[")), sample.keys + 1);
      EXPECT_EQ(static_cast<size_t>(count("\"@")), sample.values);
    }
    Close();
    events.clear();
  }
}

}  // namespace
