// Mounting, changing and saving hives: what is refused, what a save keeps, what a failure leaves.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive_check.h"
#include "platform/machine/host/digest.h"
#include "platform/machine/registry/registry.h"
#include "tests/support/hive_builder.h"
#include "tests/support/hive_reader.h"
#include "tests/support/hive_structure.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char *kHive = "D:\\config\\SYSTEM";
constexpr const char *kHost = "restored/config/SYSTEM";
constexpr const char *kDisk = "SYSTEM_ORG\\ControlSet001\\Services\\disk";

class Hive : public MachineTest {
 protected:
  Hive() {
    fs::create_directories(Host("restored/config"));
    WriteHive(Host(kHost), SystemHiveValues(1));
  }
  ~Hive() override { EXPECT_EQ(machine::OpenKeys(), 0u); }

  LSTATUS Set(const std::string &keyName, const char *name, DWORD type, const std::string &data) {
    HKEY key = nullptr;
    LSTATUS status = platform::RegCreateKeyA(HKEY_LOCAL_MACHINE, keyName.c_str(), &key);
    if (status != ERROR_SUCCESS) return status;
    status = platform::RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE *>(data.data()),
                                      static_cast<DWORD>(data.size()));
    platform::RegCloseKey(key);
    return status;
  }

  std::vector<uint8_t> HiveBytes() const {
    const std::string text = ReadFile(kHost);
    return {text.begin(), text.end()};
  }
  void PutHive(const std::vector<uint8_t> &bytes) { WriteFile(kHost, std::string(bytes.begin(), bytes.end())); }

  // The detail of the last event of that kind; "none" without one.
  std::string Detail(uint32_t kind) const {
    for (auto event = events.rbegin(); event != events.rend(); ++event) {
      if (event->kind == kind) return event->detail;
    }
    return "none";
  }
  void ExpectAlone() const {
    for (const auto &entry : fs::directory_iterator(Host("restored/config"))) {
      EXPECT_EQ(entry.path().filename(), "SYSTEM") << "a stray file was left";
    }
  }
};

void Put32(std::vector<uint8_t> *bytes, size_t at, uint32_t number) { machine::WriteLe32(bytes->data() + at, number); }

struct BadHive {
  const char *name;
  const char *reason;
  std::function<void(std::vector<uint8_t> *)> spoil;
  bool fixChecksum = true;
};

class RefusedHive : public Hive, public testing::WithParamInterface<BadHive> {};

TEST_P(RefusedHive, IsLeftAloneWithItsOwnReason) {
  std::vector<uint8_t> bytes = HiveBytes();
  GetParam().spoil(&bytes);
  if (GetParam().fixChecksum) SetHiveChecksum(&bytes);
  PutHive(bytes);
  Open();
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].kind, uint32_t(VXRMACHINE_HIVE_REFUSED));
  EXPECT_EQ(events[0].subject, kHive);
  EXPECT_THAT(events[0].detail, HasSubstr(GetParam().reason));
  EXPECT_THAT(log, HasSubstr("reg.exe: " + std::string(kHive) + " " + events[0].detail + "\n"));
  EXPECT_EQ(HiveBytes(), bytes);
  HKEY key = nullptr;
  EXPECT_EQ(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, "SYSTEM_ORG", &key), LSTATUS(ERROR_FILE_NOT_FOUND));
  ExpectAlone();
}

const BadHive kBadHives[] = {
    {"Empty", "too short", [](auto *bytes) { bytes->clear(); }, false},
    {"BaseBlockAlone", "too short", [](auto *bytes) { bytes->resize(4096); }, false},
    {"Text", "does not begin with regf", [](auto *bytes) { bytes->assign(9000, 'x'); }, false},
    {"LogType", "type 6", [](auto *bytes) { Put32(bytes, 28, 6); }},
    {"Version1_2", "version 1.2", [](auto *bytes) { Put32(bytes, 24, 2); }},
    {"Version1_7", "version 1.7", [](auto *bytes) { Put32(bytes, 24, 7); }},
    {"Version2_5", "version 2.5", [](auto *bytes) { Put32(bytes, 20, 2); }},
    {"Checksum", "its checksum is", [](auto *bytes) { (*bytes)[100] ^= 1; }, false},
    {"NoBins", "has no bins", [](auto *bytes) { Put32(bytes, 40, 0); }},
    {"OddBins", "(8200) is no multiple", [](auto *bytes) { Put32(bytes, 40, 8200); }},
    {"BinsPastTheEnd", "is cut off", [](auto *bytes) { Put32(bytes, 40, 0x10000); }},
    {"CutOff", "is cut off", [](auto *bytes) { bytes->resize(8192); }},
    {"RootOutside", "its root key (at 0x3000)", [](auto *bytes) { Put32(bytes, 36, 0x3000); }},
    {"RootInBaseBlock", "its root key (at 0xFFFFFFF8)", [](auto *bytes) { Put32(bytes, 36, 0xFFFFFFF8); }},
    {"RootIsNoKey", "no key where its root key should be", [](auto *bytes) { (*bytes)[4096 + 36] = 's'; }},
    {"RootIsFree", "no key where its root key should be", [](auto *bytes) { Put32(bytes, 4096 + 32, 96); }},
    {"BinSignature", "bin at 0x1000 has no signature", [](auto *bytes) { (*bytes)[8192] = 'H'; }},
    {"BinOffset", "says that it is at 0x1008", [](auto *bytes) { Put32(bytes, 8192 + 4, 0x1008); }},
    {"BinSizeZero", "impossible size 0", [](auto *bytes) { Put32(bytes, 8192 + 8, 0); }},
    {"BinSizeOdd", "impossible size 4100", [](auto *bytes) { Put32(bytes, 8192 + 8, 4100); }},
    {"BinTooLong", "impossible size 1048576", [](auto *bytes) { Put32(bytes, 8192 + 8, 1 << 20); }},
    {"CellTooLong", "damaged within its bins", [](auto *bytes) { Put32(bytes, 8192 + 32, 0x80000008); }},
    {"Dirty", "not closed cleanly (sequence numbers 2 and 1)", [](auto *bytes) { Put32(bytes, 4, 2); }},
};

INSTANTIATE_TEST_SUITE_P(Files, RefusedHive, testing::ValuesIn(kBadHives),
                         [](const auto &file) { return std::string(file.param.name); });

TEST_F(Hive, MountsOnceAtAFreeKeyDirectlyBelowTheRoot) {
  WriteHive(Host("restored/config/SOFTWARE"), {});
  Open();
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", "D:\\config\\absent"), 1);
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("does not exist"));
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", "D:\\absent\\SYSTEM"), 1);
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", "D:\\config"), 1);
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", nullptr), 1);
  EXPECT_EQ(machine::MountHive("SYSTEM", kHive), 1);
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("HKLM\\SYSTEM is in use"));
  EXPECT_EQ(machine::MountHive("", kHive), 1);
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG\\Deep", kHive), 1);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 1);
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", "d:\\CONFIG\\system"), 0) << "names on disk have no case";
  EXPECT_EQ(Detail(VXRMACHINE_HIVE_LOADED), "SYSTEM_ORG");
  EXPECT_EQ(machine::MountHive("system_org", "D:\\config\\SOFTWARE"), 1);
  EXPECT_EQ(machine::MountHive("OTHER", kHive), 1) << "one file at two keys";
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("in use by another run"));
  EXPECT_EQ(Set("SYSTEM_ORG\\CurrentControlSet\\Services\\x", "a", REG_SZ, ""), ERROR_SUCCESS)
      << "a mounted hive has no link: this is an ordinary key";
  EXPECT_EQ(machine::UnmountHive("System_Org"), 0);
}

TEST_F(Hive, SavesSetValuesAndLosesNone) {
  // Set beside a value of a type that only Windows' own drivers know.
  std::vector<HiveValue> values = SystemHiveValues(1);
  values.push_back({"ControlSet001\\Services\\disk", "Odd", 0xFFFF0012, {1, 2, 3, 4, 5}});
  WriteHive(Host(kHost), values);
  Open();
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  events.clear();
  const std::vector<std::string> before = ExportHive(Host(kHost));
  const std::string pristine = ReadFile(kHost);
  EXPECT_EQ(Set(kDisk, "start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
  EXPECT_EQ(Set(kDisk, "Path", REG_EXPAND_SZ, std::string("a\xE4\0", 3)), ERROR_SUCCESS);
  EXPECT_EQ(Set("SYSTEM_ORG\\ControlSet001\\Services\\new", "List", REG_MULTI_SZ, std::string("x\0y\0\0", 5)),
            ERROR_SUCCESS);
  EXPECT_EQ(Set("SYSTEM_ORG\\ControlSet001\\Services\\new\\Parameters", "Raw", REG_BINARY, "\1\xFF"), ERROR_SUCCESS);
  EXPECT_EQ(ReadFile(kHost), pristine) << "the file changes at the unmount, not before";

  const MachineEvent expected[] = {
      {VXRMACHINE_VALUE_WRITTEN, REG_DWORD, 4, kDisk, "start", "0x00000003 (3)"},
      {VXRMACHINE_VALUE_WRITTEN, REG_EXPAND_SZ, 6, kDisk, "Path", "a\xE4"},
      {VXRMACHINE_VALUE_WRITTEN, REG_MULTI_SZ, 10, "SYSTEM_ORG\\ControlSet001\\Services\\new", "List", "x, y"},
      {VXRMACHINE_VALUE_WRITTEN, REG_BINARY, 2, "SYSTEM_ORG\\ControlSet001\\Services\\new\\Parameters", "Raw", "01 FF"},
  };
  ASSERT_EQ(events.size(), std::size(expected));
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].subject, expected[i].subject);
    EXPECT_EQ(events[i].detail, expected[i].detail);
    EXPECT_EQ(events[i].text, expected[i].text);
    EXPECT_EQ(events[i].type, expected[i].type);
    EXPECT_EQ(events[i].size, expected[i].size);
  }
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
  EXPECT_EQ(events.back().kind, uint32_t(VXRMACHINE_HIVE_SAVED));
  EXPECT_EQ(events.back().size, fs::file_size(Host(kHost)));
  EXPECT_EQ(HiveProblem(HiveBytes()), "");
  ExpectAlone();

  if (before.empty()) GTEST_SKIP() << "hivexregedit is not installed";
  EXPECT_THAT(ExportDifference(before, ExportHive(Host(kHost))),
              testing::UnorderedElementsAre(
                  "-\"Start\"=dword:00000000", "+\"Start\"=dword:00000003", "+\"Path\"=hex(2):61,00,e4,00,00,00",
                  "+[\\ControlSet001\\Services\\new]", "+", "+\"List\"=hex(7):78,00,00,00,79,00,00,00,00,00",
                  "+[\\ControlSet001\\Services\\new\\Parameters]", "+", "+\"Raw\"=hex(3):01,ff"));
}

TEST_F(Hive, WritesNothingWhenNothingChanges) {
  Open();
  struct stat before, after;
  ASSERT_EQ(stat(Host(kHost).c_str(), &before), 0);
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string(4, '\0')), ERROR_SUCCESS) << "the value that it has";
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
  ASSERT_EQ(stat(Host(kHost).c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_EQ(Detail(VXRMACHINE_HIVE_SAVED), "none");
}

// Whoever keeps the old hive for an undo knows the new one by its digest before it is there.
TEST_F(Hive, ARehearsalTellsTheDigestOfTheNewHive) {
  Open("", std::string(kStandardSystem) + "clock = 2026-11-19T12:00:00Z\n");
  std::string digests[2];
  for (std::string &digest : digests) {
    ASSERT_TRUE(VXRMachine_Rehearse(&digest == digests));
    ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
    EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
    EXPECT_EQ(Set("SYSTEM_ORG\\ControlSet001\\Services\\new\\Deep", "Text", REG_SZ, std::string(5000, 't')),
              ERROR_SUCCESS);
    EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
    ASSERT_EQ(events.back().kind, uint32_t(VXRMACHINE_HIVE_SAVED));
    digest = events.back().text;
  }
  const machine::Descriptor file(::open(Host(kHost).c_str(), O_RDONLY));
  ASSERT_TRUE(machine::FileDigest(file.fd, fs::file_size(Host(kHost)), &digests[1]));
  EXPECT_EQ(events.back().text, "") << "of a real save";
  EXPECT_EQ(digests[0], digests[1]);
}

TEST_F(Hive, AFailedSaveLeavesTheOldHive) {
  for (const char *step : {"hive read", "file create", "hive write", "file take over", "file flush", "file rename"}) {
    SCOPED_TRACE(step);
    Open();
    const std::vector<uint8_t> before = HiveBytes();
    ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
    EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
    machine::SetFaultPlan({step, 1, false, 0});
    EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 1);
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_THAT(Detail(VXRMACHINE_HIVE_NOT_SAVED),
                testing::AnyOf(HasSubstr("system error 8"), HasSubstr("system error 112"), HasSubstr("No space left")));
    EXPECT_EQ(HiveBytes(), before);
    ExpectAlone();
    EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0) << "a hive that was not saved is unmounted all the same";
    Close();
    EXPECT_EQ(HiveBytes(), before) << "a hive that is still mounted is dropped";
  }
}

TEST_F(Hive, TwoRunsExcludeEachOther) {
  Open();
  {
    const machine::Descriptor other(::open(Host(kHost).c_str(), O_RDONLY));
    ASSERT_EQ(flock(other.fd, LOCK_EX), 0);
    EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 1);
    EXPECT_THAT(Detail(VXRMACHINE_HIVE_REFUSED), HasSubstr("in use by another run"));
  }
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  const machine::Descriptor other(::open(Host(kHost).c_str(), O_RDONLY));
  EXPECT_NE(flock(other.fd, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
  EXPECT_EQ(flock(other.fd, LOCK_EX | LOCK_NB), 0);
}

TEST_F(Hive, StaysMountedWhileAKeyIsOpen) {
  Open();
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  HKEY key = nullptr;
  ASSERT_EQ(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, kDisk, &key), ERROR_SUCCESS);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 1);
  EXPECT_EQ(platform::RegQueryValueExA(key, "Start", nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(platform::RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
}

TEST_F(Hive, RefusesWhatItCouldNotSaveWhole) {
  std::vector<HiveValue> values = SystemHiveValues(1);
  HiveValue big = NumberValue("Big", "Blob", 0);
  big.data.assign(16345, 7);
  values.push_back(big);
  WriteHive(Host(kHost), values);
  Open();
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  EXPECT_EQ(Set(kDisk, "Blob", REG_BINARY, std::string(16345, 'x')), LSTATUS(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(Set(kDisk, "Blob", REG_BINARY, std::string(16344, 'x')), ERROR_SUCCESS);
  EXPECT_EQ(Set("SYSTEM_ORG\\Big", "Other", REG_BINARY, "x"), LSTATUS(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(Set("SYSTEM_ORG\\" + std::string(256, 'k'), "a", REG_BINARY, "x"), LSTATUS(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
}

// libhivex would end the whole program at the second of two values that name one data cell.
TEST_F(Hive, RefusesToReplaceValuesThatShareACell) {
  std::vector<uint8_t> bytes = HiveBytes();
  const auto dataOffset = [&](const std::string &name) {  // of the first value of that name, in its record
    return std::search(bytes.begin(), bytes.end(), name.begin(), name.end()) - 12;
  };
  std::copy_n(dataOffset("DisplayName"), 4, dataOffset("Group"));
  PutHive(bytes);
  Open();
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 1);
  EXPECT_THAT(Detail(VXRMACHINE_HIVE_NOT_SAVED), HasSubstr("two of its records share a cell"));
  EXPECT_EQ(HiveBytes(), bytes);
  ExpectAlone();
}

// Checksums of 0 and 0xFFFFFFFF are stored as 1 and 0xFFFFFFFE; libhivex knows neither.
TEST_F(Hive, ReadsAndWritesTheTwoExceptionalChecksums) {
  const std::string clock = std::string(kStandardSystem) + "clock = 2026-11-19T12:00:00Z\n";
  constexpr size_t kSpare = 504;  // a reserved word that nobody changes
  const std::vector<uint8_t> original = HiveBytes();
  const auto change = [&](const std::vector<uint8_t> &hive) {
    PutHive(hive);
    Open("", clock);
    EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0) << Detail(VXRMACHINE_HIVE_REFUSED);
    EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
    EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
    Close();
    return HiveBytes();
  };
  const uint32_t plainAfter = machine::PlainXor(change(original).data());
  const struct { uint32_t plain, stored; } cases[] = {{0xFFFFFFFF, 0xFFFFFFFE}, {0, 1}};
  for (const auto &c : cases) {
    std::vector<uint8_t> read = original;
    Put32(&read, kSpare, machine::PlainXor(original.data()) ^ c.plain);
    SetHiveChecksum(&read);
    ASSERT_EQ(machine::ReadLe32(&read[508]), c.stored);
    change(read);

    std::vector<uint8_t> written = original;
    Put32(&written, kSpare, plainAfter ^ c.plain);
    SetHiveChecksum(&written);
    EXPECT_EQ(machine::ReadLe32(&change(written)[508]), c.stored);
  }
}

class CorpusHive : public Hive {
 protected:
  void SetUp() override {
    const char *corpus = std::getenv("VXR_CORPUS_DIR");
    if (corpus == nullptr) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
    const std::string packed = (fs::path(corpus) / "hives/SYSTEM-6.1.xz").string();
    ASSERT_EQ(std::system(("xz -dkc '" + packed + "' > '" + Host(kHost).string() + "'").c_str()), 0);
    before = ExportHive(Host(kHost));
    if (before.empty()) GTEST_SKIP() << "hivexregedit is not installed";
  }
  std::vector<std::string> before;
};

TEST_F(CorpusHive, OnlyWhatIsSetChanges) {
  Open();
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  const std::string critical = "SYSTEM_ORG\\ControlSet001\\Control\\CriticalDeviceDatabase\\pci#ven_1af4&dev_1042";
  EXPECT_EQ(Set(kDisk, "Start", REG_DWORD, std::string("\3\0\0\0", 4)), ERROR_SUCCESS);
  EXPECT_EQ(Set(critical, "Service", REG_SZ, std::string("viostor\0", 8)), ERROR_SUCCESS);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0) << Detail(VXRMACHINE_HIVE_NOT_SAVED);
  EXPECT_THAT(
      ExportDifference(before, ExportHive(Host(kHost))),
      testing::UnorderedElementsAre("-\"Start\"=dword:00000000", "+\"Start\"=dword:00000003", "+",
                                    "+[\\ControlSet001\\Control\\CriticalDeviceDatabase\\pci#ven_1af4&dev_1042]",
                                    "+\"Service\"=hex(1):76,00,69,00,6f,00,73,00,74,00,6f,00,72,00,00,00"));
  // A file that Windows and we accept again, and that has hardly grown.
  EXPECT_EQ(machine::MountHive("SYSTEM_ORG", kHive), 0);
  EXPECT_LT(fs::file_size(Host(kHost)), 11771904u + 65536u);
  EXPECT_EQ(HiveProblem(HiveBytes()), "");
}

}  // namespace
