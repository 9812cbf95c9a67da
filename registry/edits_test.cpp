#include "registry/edits.h"

#include <algorithm>

#include "log/log.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/registry/registry.h"
#include "tests/support/hive_builder.h"
#include "tests/support/hive_reader.h"
#include "tests/support/hive_structure.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHive[] = "restored/SYSTEM";
const std::string kServices = "ControlSet001\\Services", kDiskKey = kServices + "\\disk", kOld = kServices + "\\old";

class Edits : public MachineTest {
 protected:
  ~Edits() override { EXPECT_EQ(machine::OpenKeys(), 0u); }

  void Mount() {
    std::vector<HiveValue> values = SystemHiveValues(1);
    values.push_back(NumberValue(kOld + "\\StartOverride", "0", 3));
    values.push_back({kOld + "\\StartOverride", "Odd", 0xFFFF0012, {1, 2, 3, 4, 5}});
    values.push_back(TextValue(kOld + "\\StartOverride\\Deep", "", "default"));
    values.push_back(TextValue(kOld, "Group", "none"));
    values.push_back({kOld, "Empty", REG_NONE, {}});
    WriteHive(Host(kHive), values);
    Open();
    ASSERT_EQ(machine::MountHive("SYSTEM_ORG", "D:\\SYSTEM"), 0);
  }
};

// Every key and value below the key, as the edits make it.
std::vector<std::string> Snapshot(const RegistryEdits &edits, const std::string &top = "") {
  std::vector<std::string> keys = {top}, lines;
  for (std::size_t at = 0; at < keys.size(); ++at) {
    const std::string key = keys[at];
    lines.push_back('[' + key + ']');
    for (const std::string &name : ValueNames(edits, key)) {
      RegistryData data;
      EXPECT_TRUE(ReadValue(edits, key, name, &data)) << key << name;
      lines.push_back(key + ":" + name + "=" + std::to_string(data.type) + ":" + data.bytes);
    }
    for (const std::string &name : SubKeys(edits, key)) keys.push_back((key.empty() ? "" : key + '\\') + name);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

// Changes of every kind, some of what others made.
RegistryEdits SomeEdits() {
  RegistryEdits edits;
  SetValue(&edits, kOld, "Start", NumberData(0));
  SetValue(&edits, kOld, "GROUP", TextData("SCSI miniport"));
  DeleteKey(&edits, kOld + "\\startoverride");
  DeleteValue(&edits, kOld, "empty");
  SetValue(&edits, kServices + "\\new\\Parameters\\PnpInterface", "5", NumberData(1));
  SetValue(&edits, kServices + "\\new", "Owners", ListData({"oem4.inf", "oem5.inf"}));
  SetValue(&edits, "DriverDatabase\\DeviceIds\\{4d36e97b-e325-11ce-bfc1-08002be10318}", "oem4.inf", {REG_NONE, {}});
  SetValue(&edits, "DriverDatabase\\DeviceIds", "Odd", {0xFFFF0012, "\1\2\3"});
  CreateKey(&edits, kServices + "\\made");
  CreateKey(&edits, kServices + "\\gone\\below");
  DeleteKey(&edits, kServices + "\\Gone");
  DeleteKey(&edits, kDiskKey);
  SetValue(&edits, kDiskKey + "\\Again", "", TextData("back"));
  return edits;
}

TEST_F(Edits, AreReadThroughThenMade) {
  Mount();
  const RegistryEdits edits = SomeEdits();
  EXPECT_EQ(edits.list.size(), 13u);
  DWORD number = 9;
  std::string text;
  EXPECT_TRUE(ReadNumber(edits, kOld, "START", &number) && number == 0);
  EXPECT_TRUE(ReadText(edits, kOld, "Group", &text) && text == "SCSI miniport");
  EXPECT_FALSE(ReadNumber(edits, kOld, "Group", &number) || ReadText(edits, kOld, "Start", &text));
  EXPECT_FALSE(KeyExists(edits, kOld + "\\StartOverride\\Deep") || KeyExists(edits, kServices + "\\gone\\below"));
  EXPECT_FALSE(ReadNumber(edits, kDiskKey, "Start", &number)) << "of a key that is made anew";
  EXPECT_THAT(ValueNames(edits, kOld), ElementsAre("Group", "Start"));
  EXPECT_THAT(SubKeys(edits, kOld), IsEmpty());
  EXPECT_THAT(ControlSets(edits), ElementsAre("ControlSet001", "ControlSet002"));
  const std::vector<std::string> planned = Snapshot(edits), before = ExportHive(Host(kHive));

  std::string failed;
  bool restored = false;
  events.clear();
  ASSERT_TRUE(ApplyEdits(edits, &failed, &restored)) << failed;
  EXPECT_EQ(Snapshot({}), planned);
  EXPECT_THAT(SomeEdits().list, testing::SizeIs(4)) << "what is deleted only to be made again";
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const MachineEvent &event) { return event.kind == VXRMACHINE_VALUE_DELETED; }),
            6);
  EXPECT_EQ(machine::UnmountHive("SYSTEM_ORG"), 0);
  const std::string hive = ReadFile(kHive);
  EXPECT_EQ(HiveProblem({hive.begin(), hive.end()}), "");
  ASSERT_EQ(machine::MountHive("SYSTEM_ORG", "D:\\SYSTEM"), 0);
  EXPECT_EQ(Snapshot({}), planned) << "after the save";
}

TEST_F(Edits, AreTakenBackAtEachFailingCall) {
  for (const char *call : {"RegOpenKeyA", "RegCreateKeyA", "RegQueryValueExA", "RegSetValueExA", "RegEnumKeyExA",
                           "RegEnumValueA", "RegDeleteKeyA", "RegDeleteValueA"}) {
    Mount();
    const RegistryEdits edits = SomeEdits();
    const std::vector<std::string> before = Snapshot({});
    VXRDbg_Log(kError, "the log reads the registry when it starts\n");
    bool made = false;
    for (unsigned nth = 1; !made; ++nth) {
      std::string failed;
      bool restored = false;
      machine::SetFaultPlan({call, nth, false, ERROR_ACCESS_DENIED});
      made = ApplyEdits(edits, &failed, &restored);
      EXPECT_EQ(made, machine::FaultsMet() == 0) << call << nth;
      machine::SetFaultPlan({});
      EXPECT_TRUE(restored) << call << nth;
      EXPECT_TRUE(made || Snapshot({}) == before) << call << nth << failed;
    }
    Close();
  }
}

TEST_F(Edits, WhatIsGoneIsNotDeleted) {
  Mount();
  const RegistryEdits edits = SomeEdits();
  for (const RegistryEdit &edit : edits.list) {
    if (edit.kind != RegistryEdit::Kind::kDeleteKey && edit.kind != RegistryEdit::Kind::kDeleteValue) continue;
    RegistryEdits missing;
    missing.list = {edit};
    missing.list[0].key += "x";
    std::string failed;
    bool restored = false;
    EXPECT_FALSE(ApplyEdits(missing, &failed, &restored)) << edit.key;
    EXPECT_TRUE(restored && !failed.empty());
  }
}

TEST_F(Edits, AFailedReadIsNoAnswer) {
  Mount();
  VXRDbg_Log(kError, "the log reads the registry when it starts\n");
  const std::vector<std::string> before = Snapshot({});
  for (const char *call : {"RegOpenKeyA", "RegQueryValueExA", "RegEnumKeyExA"}) {
    std::size_t met = 1;
    for (unsigned nth = 1; met != 0; ++nth) {
      machine::SetFaultPlan({call, nth, false, ERROR_ACCESS_DENIED});
      RegistryEdits edits = SomeEdits();
      ControlSets(edits);
      met = machine::FaultsMet();
      machine::SetFaultPlan({});
      std::string failed;
      bool restored = false;
      EXPECT_EQ(edits.unread.empty(), met == 0) << call << nth;
      EXPECT_TRUE(met == 0 || !ApplyEdits(edits, &failed, &restored)) << call << nth;
      EXPECT_EQ(failed, edits.unread);
      EXPECT_EQ(Snapshot({}), before);
    }
  }
}

TEST_F(Edits, TellWhatCouldNotBePutBack) {
  Mount();
  std::string failed;
  bool restored = true;
  const RegistryEdits edits = SomeEdits();
  machine::SetFaultPlan({"RegSetValueExA", 3, true, ERROR_ACCESS_DENIED});
  EXPECT_FALSE(ApplyEdits(edits, &failed, &restored));
  machine::SetFaultPlan({});
  EXPECT_FALSE(restored);
  EXPECT_EQ(failed, "SYSTEM_ORG\\" + kServices + "\\new\\Parameters\\PnpInterface\\5");
  const auto lost = std::find_if(events.begin(), events.end(),
                                 [](const MachineEvent &event) { return event.kind == VXRMACHINE_HIVE_NOT_RESTORED; });
  ASSERT_NE(lost, events.end());
  EXPECT_EQ(lost->subject, "SYSTEM_ORG\\" + kOld);
  EXPECT_NE(machine::UnmountHive("SYSTEM_ORG"), 0) << "half a driver is not saved";
}

}  // namespace
