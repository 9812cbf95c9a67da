// An INF file's text. Whatever it holds, no field is longer than a field may be, the walk that stores nothing gives
// what the grammar gives, and a section is found by its name.
//
// Input: a byte that chooses how it is read (bit 0: a code page with two-byte characters; bit 1: text before the first
// section passed over), then the file.
#include <string>
#include <string_view>
#include <vector>

#include "platform/inf/inf_file.h"
#include "tests/fuzz/fuzz_folder.h"

namespace {

bool AddValue(void *context, std::string_view value) {
  static_cast<std::vector<std::string> *>(context)->emplace_back(value);
  return true;
}

// The values that a walk from field 2 on gives, as the grammar reads them.
std::vector<std::string> ParsedValues(machine::InfFile *file, const machine::InfSection &section) {
  std::vector<std::string> values;
  for (const machine::InfLine &line : section.lines) {
    for (std::uint32_t field = 0; field <= line.valueCount; ++field) {
      if (field == 0 && !line.hasKey) continue;
      const std::string_view raw = machine::RawField(section, line, field);
      Require(raw.size() <= machine::kInfFieldMax, "a field is too long");
      Require(machine::FieldText(file, section, line, field).size() <= machine::kInfFieldMax, "a text is too long");
      if (line.hasKey && field >= 2 && !raw.empty()) values.emplace_back(raw);
    }
  }
  return values;
}

void ReadSection(machine::InfFile *file, std::uint32_t index) {
  std::vector<std::string> walked;
  Require(machine::WalkValues(*file, index, 2, AddValue, &walked), "the walk ended");
  const machine::InfSection &section = machine::ParsedSection(file, index);
  const std::string name(machine::SectionName(*file, section));
  Require(ParsedValues(file, section) == walked, "the walk gives other values", name);
  Require(machine::FindSectionIndex(*file, name) == index, "a section is not found by its name", name);
  std::string value;
  for (const machine::InfLine &line : section.lines) {
    if (!line.hasKey || line.valueCount == 0) continue;
    const std::string key = machine::FieldText(file, section, line, 0);
    (void)machine::FindValue(file, section, key, &value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  auto settings =
      std::make_shared<machine::InfSettings>(*machine::MakeInfSettings((data[0] & 1) != 0 ? 932 : 1252, 0x0409));
  settings->passOverTextBefore = (data[0] & 2) != 0;
  machine::InfRefusal refusal;
  const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);
  const auto file = machine::ReadInf(text, settings, &refusal);
  if (file == nullptr) {
    Require(!refusal.reason.empty() && refusal.line > 0, "a refusal without reason");
    return 0;
  }
  for (std::uint32_t index = 0; index < file->sections.size(); ++index) ReadSection(file.get(), index);
  (void)machine::IsModernInf(file.get());
  return 0;
}
