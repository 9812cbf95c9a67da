// What the numbers of an extension file mean, in words. A number without a meaning is "unknown N", so that nothing of a
// file from elsewhere is lost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vxrcore/bmext.h"

std::string KernelWord(std::uint32_t type);
std::string HalWord(std::uint32_t type);
std::string BootMediaWord(std::uint32_t media);
std::string ArchitectureWord(std::uint32_t code);
std::string PlatformWord(std::uint32_t platform);
std::string ProductWord(std::uint32_t type);
std::string DeviceTypeWord(std::uint32_t type);
std::string ServiceTypeWord(std::uint32_t type);
std::string ServiceStartWord(std::uint32_t start);

// One word a bit that is set, in increasing order; bits without a meaning as "0x...".
std::vector<std::string> SuiteWords(std::uint32_t mask);
std::vector<std::string> VolumeTypeWords(std::uint32_t bits);
