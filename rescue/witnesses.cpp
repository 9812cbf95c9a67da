#include "rescue/witnesses.h"

#include <algorithm>
#include <string_view>

#include "platform/architecture.h"
#include "platform/text/ansi_case.h"

namespace rescue {
namespace {

using machine::Status;

constexpr std::uint32_t kWorkstation = 1, kDomainController = 2, kServer = 3;
constexpr std::uint32_t kTerminal = 0x10, kSingleUser = 0x100;

void Doubt(RestoredSystem *system, const std::string &text) { system->doubts.push_back(text); }

// What a file fails at and what follows from it; the remedy comes last.
void DoubtVersion(RestoredSystem *system, const std::string &file, const std::string &reads, const char *follows) {
  const std::size_t remedy = std::min(reads.find("; "), reads.size());
  Doubt(system, file + " " + reads.substr(0, remedy) + ": the version is " + follows + reads.substr(remedy));
}

Status DecideVersion(const Witnesses &witnesses, RestoredSystem *system) {
  const auto &kernel = witnesses.kernel.version, &software = witnesses.software;
  const auto version = kernel ? kernel : software;
  const auto say = [](const Status &read) { return read ? std::string("does not tell its version") : Words(read); };
  if (!version) {
    return Status::Refused("which Windows is in " + system->windows.string() + " cannot be told: ntoskrnl.exe " +
                           say(witnesses.kernelRead) + ", and the SOFTWARE hive " + say(witnesses.softwareRead) +
                           "; restore both again");
  }
  if (version->major < 5) {
    return Status::Refused("the Windows in " + system->windows.string() + " is " + Text(*version) +
                           "; drivers can be chosen for 5.0 (Windows 2000) and later");
  }
  system->major = version->major;
  system->minor = version->minor;
  if (!kernel) DoubtVersion(system, "its ntoskrnl.exe", say(witnesses.kernelRead), "the SOFTWARE hive's");
  if (!software) {
    DoubtVersion(system, "its SOFTWARE hive", say(witnesses.softwareRead), "ntoskrnl.exe's");
  } else if (!witnesses.softwareRead) {
    Doubt(system, "its SOFTWARE hive " + Words(witnesses.softwareRead));
  }
  if (kernel && software && *kernel != *software) {
    Doubt(system, "its ntoskrnl.exe is " + Text(*kernel) + ", its SOFTWARE hive says " + Text(*software) +
                      ": ntoskrnl.exe is believed");
  }
  return {};
}

// An update that only switches features on raises the build and leaves the kernel as it is (19041 to 19045, 26100 to
// 26200), so a build that is a little higher in the SOFTWARE hive is no contradiction, and the true one.
void DecideBuild(const Witnesses &witnesses, RestoredSystem *system) {
  constexpr std::uint32_t kRaisedAtMost = 100;
  const std::uint32_t kernel = witnesses.kernel.build, software = witnesses.softwareBuild;
  const bool raised = software >= kernel && software - kernel <= kRaisedAtMost;
  system->build = software != 0 && (kernel == 0 || raised) ? software : kernel;
  if (kernel != 0 && software != 0 && !raised) {
    Doubt(system, "its ntoskrnl.exe is of build " + std::to_string(kernel) + ", its SOFTWARE hive says " +
                      std::to_string(software) + ": ntoskrnl.exe is believed");
  }
}

std::optional<std::uint32_t> ArchitectureNamed(const std::string &name) {
  for (const NamedArchitecture &each : kArchitectures) {
    if (machine::SameUtf8(name, each.variable)) return each.architecture;
  }
  return std::nullopt;
}

void DecideArchitecture(const Witnesses &witnesses, RestoredSystem *system) {
  const auto &kernel = witnesses.kernel.architecture;
  const auto named = ArchitectureNamed(witnesses.processor);
  system->architecture = kernel ? *kernel : named.value_or(witnesses.runs32BitPrograms ? kAmd64 : kX86);
  const NamedArchitecture *known = FindArchitecture(system->architecture);
  const std::string is = known == nullptr ? "" : known->variable;
  if (!kernel) Doubt(system, "its ntoskrnl.exe does not tell its processor, which is taken for " + is);
  if (kernel && named && *kernel != *named) {
    Doubt(system, "its ntoskrnl.exe is for " + is + ", its SYSTEM hive says " + witnesses.processor +
                      ": ntoskrnl.exe is believed");
  }
  if (system->architecture == kX86 && witnesses.runs32BitPrograms) {
    Doubt(system, "it has SysWOW64, which only 64-bit systems have, and its processor is x86 by " +
                      std::string(kernel ? "ntoskrnl.exe" : "the SYSTEM hive") + ", which is believed");
  }
}

std::optional<std::uint32_t> ProductOf(std::string_view type) {
  if (machine::SameUtf8(type, "WinNT")) return kWorkstation;
  if (machine::SameUtf8(type, "LanmanNT")) return kDomainController;
  if (machine::SameUtf8(type, "ServerNT")) return kServer;
  return std::nullopt;
}

std::uint32_t SuiteBit(std::string_view name) {
  constexpr struct {
    std::string_view name;
    std::uint32_t bit;
  } kSuites[] = {{"Small Business", 0x1},
                 {"Enterprise", 0x2},
                 {"BackOffice", 0x4},
                 {"CommunicationServer", 0x8},
                 {"Terminal Server", kTerminal},
                 {"Small Business(Restricted)", 0x20},
                 {"EmbeddedNT", 0x40},
                 {"DataCenter", 0x80},
                 {"Personal", 0x200},
                 {"Blade", 0x400},
                 {"Embedded(Restricted)", 0x800},
                 {"Security Appliance", 0x1000},
                 {"Storage Server", 0x2000},
                 {"Compute Server", 0x4000},
                 {"WH Server", 0x8000}};
  for (const auto &suite : kSuites) {
    if (machine::SameUtf8(suite.name, name)) return suite.bit;
  }
  return 0;
}

// The suite bits as the running system would report them, which is what INF files are matched against: from 5.1 on
// remote desktop for one user counts as a suite of its own, in place of a terminal server's on workstations, and beside
// it on servers unless many users may work on one.
std::uint32_t ReportedSuite(std::uint32_t named, const RestoredSystem &system, bool manyUsers) {
  if (SystemVersion{system.major, system.minor} < SystemVersion{5, 1}) return named;
  if (system.product == kWorkstation) return (named & ~kTerminal) | kSingleUser;
  return named | kTerminal | (manyUsers ? 0 : kSingleUser);
}

// The SYSTEM hive is what the kernel goes by.
void DecideProduct(const Witnesses &witnesses, RestoredSystem *system) {
  const auto product = ProductOf(witnesses.product);
  const bool isServer = machine::SameUtf8(witnesses.installationType.substr(0, 6), "Server");
  const bool isClient = machine::SameUtf8(witnesses.installationType, "Client");
  system->product = product.value_or(isServer ? kServer : kWorkstation);
  if (!product) {
    Doubt(system, std::string("its SYSTEM hive does not tell whether it is a server, and it is taken for a ") +
                      (isServer ? "server" : "workstation"));
  } else if ((isServer && *product == kWorkstation) || (isClient && *product != kWorkstation)) {
    Doubt(system, std::string("its SYSTEM hive is that of a ") + (isClient ? "server" : "workstation") +
                      ", its SOFTWARE hive says " + witnesses.installationType + ": the SYSTEM hive is believed");
  }
  std::uint32_t named = 0;
  for (const std::string &suite : witnesses.suites) named |= SuiteBit(suite);
  system->suite = ReportedSuite(named, *system, witnesses.manyUsers);
}

void DecideDatabase(const Witnesses &witnesses, RestoredSystem *system) {
  const SystemVersion version = {system->major, system->minor};
  const bool late = version >= kFirstWithDatabase;
  system->driverDatabase = witnesses.database.value_or(false);
  if (system->driverDatabase != late) {
    Doubt(system, "it is Windows " + Text(version) + ", and its SYSTEM hive is that of " +
                      (late ? "6.1 or earlier (it has no DriverDatabase)" : "6.2 or later (it has DriverDatabase)"));
  }
}

void DecideDrive(const Witnesses &witnesses, RestoredSystem *system) {
  const std::string &root = witnesses.systemRoot;
  if (root.size() < 3 || !machine::IsAsciiLetter(root[0]) || root[1] != ':') return;
  system->drive = machine::UpperAscii(root[0]);
  const std::string name = root.substr(root.find_last_of('\\') + 1), own = system->windows.filename().string();
  if (machine::SameUtf8(name, own)) return;
  Doubt(system, "its SOFTWARE hive says that it is in " + root + ", it is in " + own);
}

// The name kept saying 10 when 11 came.
void CorrectName(RestoredSystem *system) {
  constexpr std::string_view kTen = "Windows 10";
  constexpr std::uint32_t kFirstOfEleven = 22000;
  if (system->build >= kFirstOfEleven && system->productName.starts_with(kTen)) {
    system->productName.replace(0, kTen.size(), "Windows 11");
  }
}

}  // namespace

Status DecideFacts(const Witnesses &witnesses, RestoredSystem *system) {
  if (Status decided = DecideVersion(witnesses, system); !decided) return decided;
  DecideBuild(witnesses, system);
  DecideArchitecture(witnesses, system);
  DecideProduct(witnesses, system);
  DecideDatabase(witnesses, system);
  DecideDrive(witnesses, system);
  CorrectName(system);
  return {};
}

}  // namespace rescue
