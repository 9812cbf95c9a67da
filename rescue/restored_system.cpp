#include "rescue/restored_system.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "platform/text/code_page.h"
#include "rescue/disk_names.h"
#include "rescue/system_files.h"
#include "rescue/witnesses.h"

namespace rescue {
namespace {

using machine::Hive;
using machine::Status;

std::optional<std::uint32_t> ParseNumber(const std::optional<std::string> &text, int base) {
  std::uint32_t number = 0;
  if (!text) return std::nullopt;
  const char *end = text->data() + text->size();
  const auto parsed = std::from_chars(text->data(), end, number, base);
  return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(number) : std::nullopt;
}

Status OpenRestoredHive(const std::filesystem::path &file, Hive *hive) {
  Status opened = OpenHiveFile(hive, file, machine::HiveUse::kLook);
  if (opened) opened = ReadHive(hive);
  return opened ? Status() : Status::Refused(RestoredHiveWords(opened), opened.error);
}

// A failure about a file, in one line.
Status About(const std::filesystem::path &file, const Status &failure) {
  const char *remedy = failure.error == EACCES ? "; run as root" : "";
  return Status::Refused(file.string() + " " + Words(failure) + remedy, failure.error);
}

Status Damaged() { return Status::Refused("is damaged within its bins; restore the file again"); }

// --- The SYSTEM hive -------------------------------------------------------------------------------------------------

void ReadLanguage(Hive *hive, const std::u16string &control, RestoredSystem *system) {
  const auto language = ParseNumber(ReadHiveText(hive, control + u"\\Nls\\Language", u"Default"), 16);
  const auto page = ParseNumber(ReadHiveText(hive, control + u"\\Nls\\CodePage", u"ACP"), 10);
  if (language && *language <= 0xFFFF) {
    system->language = *language;
  } else {
    system->doubts.push_back("its SYSTEM hive does not tell its language, which is taken for 0x0409 (English)");
  }
  if (page && machine::KnownCodePage(*page)) {
    system->codePage = *page;
  } else {
    system->doubts.push_back("its ANSI code page is " +
                             (page ? std::to_string(*page) + ", which is not known," : "not told") +
                             " and taken for 1252");
  }
}

void ReadControl(Hive *hive, const std::u16string &control, RestoredSystem *system, Witnesses *witnesses) {
  system->computerName = ReadHiveText(hive, control + u"\\ComputerName\\ComputerName", u"ComputerName").value_or("");
  witnesses->processor =
      ReadHiveText(hive, control + u"\\Session Manager\\Environment", u"PROCESSOR_ARCHITECTURE").value_or("");
  witnesses->product = ReadHiveText(hive, control + u"\\ProductOptions", u"ProductType").value_or("");
  witnesses->suites = ReadHiveTexts(hive, control + u"\\ProductOptions", u"ProductSuite");
  witnesses->manyUsers = ReadHiveNumber(hive, control + u"\\Terminal Server", u"TSAppCompat").value_or(0) != 0;
  witnesses->database = HasDriverDatabase(hive);
  ReadLanguage(hive, control, system);
}

Status ReadSystemHive(RestoredSystem *system, Witnesses *witnesses) {
  Hive hive;
  if (Status opened = OpenRestoredHive(system->systemHive, &hive); !opened) return About(system->systemHive, opened);
  if (hive.recovered) system->hiveReplay = DescribeReplay(hive.recovery);
  const auto set = ReadHiveNumber(&hive, u"Select", u"Current");
  const std::u16string name = ControlSetName(set.value_or(0));
  if (!set || !FindHiveKey(&hive, machine::ParseKeyPath(name))) {
    return Status::Refused(
        system->systemHive.string() + " is no SYSTEM hive that starts: " +
        (set ? "Select names " + machine::Utf16ToUtf8(name) + ", which it has not" : "it has no Select\\Current") +
        "; restore the file again");
  }
  system->controlSet = *set;
  const auto next = ReadHiveNumber(&hive, u"Select", u"Default");
  if (next && *next != *set) {
    system->doubts.push_back("its Select key tells that it starts from " + machine::Utf16ToUtf8(ControlSetName(*next)) +
                             " next, and used " + machine::Utf16ToUtf8(name) + " last: the latter is changed");
  }
  ReadControl(&hive, name + u"\\Control", system, witnesses);
  return hive.damaged ? About(system->systemHive, Damaged()) : Status();
}

// --- The SOFTWARE hive -----------------------------------------------------------------------------------------------

void ReadSoftwareHive(RestoredSystem *system, Witnesses *witnesses) {
  const std::u16string key = u"Microsoft\\Windows NT\\CurrentVersion";
  Hive hive;
  std::error_code error;
  const bool there = std::filesystem::exists(std::filesystem::symlink_status(system->softwareHive, error));
  witnesses->softwareRead = there ? OpenRestoredHive(system->softwareHive, &hive) : Status::Refused("is missing");
  if (!witnesses->softwareRead) return;
  const auto text = [&](const char16_t *name) { return ReadHiveText(&hive, key, name); };
  constexpr std::uint32_t kHighestVersion = 255, kHighestBuild = 0xFFFF;
  witnesses->software = SoftwareVersion(&hive);
  // Numbers that no version has are none.
  if (witnesses->software && std::max(witnesses->software->major, witnesses->software->minor) > kHighestVersion) {
    witnesses->software.reset();
  }
  const std::uint32_t build = ParseNumber(text(u"CurrentBuildNumber"), 10).value_or(0);
  witnesses->softwareBuild = build <= kHighestBuild ? build : 0;
  witnesses->systemRoot = text(u"SystemRoot").value_or("");
  witnesses->installationType = text(u"InstallationType").value_or("");
  system->revision = ReadHiveNumber(&hive, key, u"UBR");
  system->productName = text(u"ProductName").value_or("");
  system->edition = text(u"EditionID").value_or("");
  system->release = text(u"DisplayVersion").value_or("");
  if (system->release.empty()) system->release = text(u"ReleaseId").value_or("");
  if (hive.damaged) witnesses->softwareRead = Damaged();
}

}  // namespace

Status ReadRestoredSystem(RestoredSystem *system) {
  Witnesses witnesses;
  if (Status read = ReadSystemHive(system, &witnesses); !read) return read;
  ReadSoftwareHive(system, &witnesses);
  const std::filesystem::path kernel = FindBelow(system->system32, {"ntoskrnl.exe"});
  witnesses.kernelRead = kernel.empty() ? Status::Refused("is missing") : ReadImage(kernel, &witnesses.kernel);
  witnesses.runs32BitPrograms = !FindBelow(system->windows, {"SysWOW64"}).empty();
  return DecideFacts(witnesses, system);
}

}  // namespace rescue
