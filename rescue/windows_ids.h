// The ids of a PCI function, as Windows lists them.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace rescue {

struct PciFunction {
  unsigned vendor = 0, device = 0;
  std::optional<unsigned> subsystemVendor, subsystemDevice;  // both or none
  std::optional<unsigned> revision;
  std::optional<unsigned> classCode;  // class, subclass, interface: 0xCCSSPP
  bool hasInterface = false;          // else the class code's last byte is not known
};

// Reads "8086:2822", "8086:2822:1028:04F7", "8086:2822:1028:04F7:05" with or without blanks and a class of four or six
// digits behind, which 0x may precede; all hexadecimal. False for anything else.
bool ParsePciFunction(const std::string &text, PciFunction *function);
// Whether a text begins as such a function: a class may follow as an argument of its own.
bool IsPciFunction(const std::string &text);

// Most specific first. What is not known of the function takes the ids that name it with it.
std::vector<std::string> HardwareIds(const PciFunction &function);
std::vector<std::string> CompatibleIds(const PciFunction &function);

// The class that Windows' set-up gives it: "hdc" for IDE and AHCI, "SCSIAdapter" for every other controller and for
// what is not known, of bridges the GUID of the system's own devices.
const char *SetupClass(const PciFunction &function);

}  // namespace rescue
