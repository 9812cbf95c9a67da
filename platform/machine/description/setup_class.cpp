#include "platform/machine/description/setup_class.h"

#include "platform/text/code_page.h"

namespace {

constexpr machine::SetupClass kClasses[] = {
    {"1394", "{6BDD1FC1-810F-11D0-BEC7-08002BE2092F}"},
    {"Battery", "{72631E54-78A4-11D0-BCF7-00AA00B7B32A}"},
    {"Biometric", "{53D29EF7-377C-4D14-864B-EB3A85769359}"},
    {"Bluetooth", "{E0CBF06C-CD8B-4647-BB8A-263B43F0F974}"},
    {"CDROM", "{4D36E965-E325-11CE-BFC1-08002BE10318}"},
    {"Computer", "{4D36E966-E325-11CE-BFC1-08002BE10318}"},
    {"DiskDrive", "{4D36E967-E325-11CE-BFC1-08002BE10318}"},
    {"Display", "{4D36E968-E325-11CE-BFC1-08002BE10318}"},
    {"fdc", "{4D36E969-E325-11CE-BFC1-08002BE10318}"},
    {"FloppyDisk", "{4D36E980-E325-11CE-BFC1-08002BE10318}"},
    {"hdc", "{4D36E96A-E325-11CE-BFC1-08002BE10318}"},
    {"HIDClass", "{745A17A0-74D3-11D0-B6FE-00A0C90F57DA}"},
    {"Image", "{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}"},
    {"Infrared", "{6BDD1FC5-810F-11D0-BEC7-08002BE2092F}"},
    {"Keyboard", "{4D36E96B-E325-11CE-BFC1-08002BE10318}"},
    {"LegacyDriver", "{8ECC055D-047F-11D1-A537-0000F8753ED1}"},
    {"MEDIA", "{4D36E96C-E325-11CE-BFC1-08002BE10318}"},
    {"MediumChanger", "{CE5939AE-EBDE-11D0-B181-0000F8753EC4}"},
    {"Modem", "{4D36E96D-E325-11CE-BFC1-08002BE10318}"},
    {"Monitor", "{4D36E96E-E325-11CE-BFC1-08002BE10318}"},
    {"Mouse", "{4D36E96F-E325-11CE-BFC1-08002BE10318}"},
    {"MTD", "{4D36E970-E325-11CE-BFC1-08002BE10318}"},
    {"MultiFunction", "{4D36E971-E325-11CE-BFC1-08002BE10318}"},
    {"Net", "{4D36E972-E325-11CE-BFC1-08002BE10318}"},
    {"NetClient", "{4D36E973-E325-11CE-BFC1-08002BE10318}"},
    {"NetService", "{4D36E974-E325-11CE-BFC1-08002BE10318}"},
    {"NetTrans", "{4D36E975-E325-11CE-BFC1-08002BE10318}"},
    {"PCMCIA", "{4D36E977-E325-11CE-BFC1-08002BE10318}"},
    {"Ports", "{4D36E978-E325-11CE-BFC1-08002BE10318}"},
    {"Printer", "{4D36E979-E325-11CE-BFC1-08002BE10318}"},
    {"Processor", "{50127DC3-0F36-415E-A6CC-4CB3BE910B65}"},
    {"SCSIAdapter", "{4D36E97B-E325-11CE-BFC1-08002BE10318}"},
    {"SecurityDevices", "{D94EE5D8-D189-4994-83D2-F68D7D41B0E6}"},
    {"SmartCardReader", "{50DD5230-BA8A-11D1-BF5D-0000F805F530}"},
    {"System", "{4D36E97D-E325-11CE-BFC1-08002BE10318}"},
    {"TapeDrive", "{6D807884-7D21-11CF-801C-08002BE10318}"},
    {"Unknown", "{4D36E97E-E325-11CE-BFC1-08002BE10318}"},
    {"USB", "{36FC9E60-C465-11CF-8056-444553540000}"},
    {"Volume", "{71A27CDD-812A-11D0-BEC7-08002BE2092F}"},
    {"VolumeSnapshot", "{533C5B84-EC70-11D2-9505-00C04F79DEAF}"},
    {"WPD", "{EEC5AD98-8080-425F-922A-DABF3DE3F69A}"},
};

}  // namespace

namespace machine {

const SetupClass *FindSetupClass(std::string_view nameOrGuid) {
  for (const SetupClass &setupClass : kClasses) {
    if (CompareNoCase(nameOrGuid, setupClass.name) == 0 || CompareNoCase(nameOrGuid, setupClass.guid) == 0) {
      return &setupClass;
    }
  }
  return nullptr;
}

}  // namespace machine
