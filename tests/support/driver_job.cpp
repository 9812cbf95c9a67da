#include "tests/support/driver_job.h"

#include <cstring>
#include <sstream>

#include "bmext/load.h"
#include "device/records.h"
#include "engine/base/parameters.h"
#include "registry/mount/hive.h"
#include "registry/values.h"
#include "restore/settings.h"
#include "tests/support/scsi_machine.h"

DriverJobTest::~DriverJobTest() { End(); }

void DriverJobTest::Begin(bool inject, const std::function<void(std::string *toml)> &bend) {
  OpenJob(bend);
  VXREng_SetStatusWnd(window, 2);
  ASSERT_TRUE(VXREng_Initialize(inject, 1));
  ASSERT_TRUE(VXRExt_Initialize(1, nullptr));
  ASSERT_TRUE(VXRRlm_Initialize(1, nullptr));
  ASSERT_TRUE(VXRReg_LoadHive(0, gpVXRParaBlock));

  device = AllocRecord<VXR_DEVICE>("device").release();
  device->VXRDevType = VXR_DEVTYPE_SCSIADAPTER;
  VXRDev_GetGuidByDevType(device->VXRDevType, &device->guDevice);
  device->bInject = inject;
  device->szInstanceID = HeapTexts({ScsiAdapterInstance(kScsiAdapterId)});
  device->szHardwareID = HeapTexts({R"(PCI\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01)", R"(PCI\VEN_1000&DEV_0030)"});
  device->szCompatibleIDs = HeapTexts({R"(PCI\VEN_1000&CC_0100)", R"(PCI\CC_0100)"});
  device->szTargetOS = HeapTexts({"ntamd64.6.1", "ntamd64"});
  driver = AllocRecord<VXR_DRIVER>("driver").release();
  driver->pVXRDevice = device;
  driver->bInject = inject;
  device->pVXRDriver = driver;
  statusLines.clear();
  ClearLog();
}

void DriverJobTest::End() {
  if (device == nullptr) return;
  VXRDev_FreeDevice(device);
  device = nullptr;
  driver = nullptr;
  if (gpVXRParaBlock != nullptr) VXRReg_UnloadHive(gpVXRParaBlock->szSystemPath);
  VXRRlm_Cleanup();
  VXRExt_Cleanup();
  VXREng_Cleanup();
  VXREng_SetStatusWnd(nullptr, 0);
  Close();
}

void DriverJobTest::WriteInf(const std::string &name, const std::string &body) {
  WriteFile("ram/drivers/" + name,
            "[Version]\nSignature = \"$Windows NT$\"\nClass = SCSIAdapter\n"
            "ClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}\n" +
                body);
}

InfFile DriverJobTest::OpenInf(const std::string &name, const std::string &body) {
  WriteInf(name, body);
  InfFile inf = OpenInfFile(("X:\\drivers\\" + name).c_str());
  EXPECT_NE(inf, nullptr) << name;
  return inf;
}

std::string DriverJobTest::HiveText(const std::string &key, const std::string &value) {
  DWORD type = 0, size = 0;
  const HeapText data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, ("SYSTEM_ORG\\ControlSet001\\" + key).c_str(),
                                                value.c_str(), &type, &size);
  if (data == nullptr) return "";
  std::ostringstream text;
  text << type << ':' << size << ':';
  DWORD number = 0;
  if (type == REG_DWORD && size == sizeof(number)) {
    std::memcpy(&number, data.get(), sizeof(number));
    text << std::hex << number;
  } else {
    text << data.get();
  }
  return text.str();
}

char *DriverJobTest::HeapTexts(const std::vector<std::string> &texts) {
  std::string all;
  for (const std::string &text : texts) all += text + '\0';
  char *memory = AllocText(all.size() + 1, "texts").release();
  std::memcpy(memory, all.data(), all.size());
  return memory;
}
