#include "platform/inf/inf_fields.h"

#include "platform/inf/inf_tokens.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

// A section that is searched through this often by key gets a table of its keys.
constexpr std::size_t kScansBeforeTable = 16;

void MakeKeyTable(InfFile *file, InfSection *section) {
  section->firstOfKey = std::make_unique<NameTable<std::uint32_t>>();
  for (std::uint32_t i = 0; i < section->lines.size(); ++i) {
    const InfLine &line = section->lines[i];
    if (line.hasKey) section->firstOfKey->try_emplace(FieldText(file, *section, line, 0), i);
  }
}

}  // namespace

bool HasField(const InfLine &line, std::uint32_t field) { return field == 0 ? line.hasKey : field <= line.valueCount; }

std::string_view RawField(const InfSection &section, const InfLine &line, std::uint32_t field) {
  const InfSpan span = section.texts[line.firstText + field - (line.hasKey ? 0 : 1)];
  return std::string_view(section.pool).substr(span.begin, span.end - span.begin);
}

std::string FieldText(InfFile *file, const InfSection &section, const InfLine &line, std::uint32_t field) {
  return ReplaceTokens(file, RawField(section, line, field));
}

std::uint32_t FindKey(InfFile *file, const InfSection &section, std::string_view key, std::uint32_t first) {
  InfSection &counted = file->sections[static_cast<std::size_t>(&section - file->sections.data())];
  if (first == 0 && counted.scanned > kScansBeforeTable * (section.lines.size() + 1)) {
    if (counted.firstOfKey == nullptr) MakeKeyTable(file, &counted);
    const auto found = counted.firstOfKey->find(key);
    return found != counted.firstOfKey->end() ? found->second : kInfNone;
  }
  for (std::uint32_t i = first; i < section.lines.size(); ++i) {
    const InfLine &line = section.lines[i];
    if (!line.hasKey) continue;
    ++counted.scanned;
    const std::string_view raw = RawField(section, line, 0);
    const bool plain = raw.find('%') == std::string_view::npos;
    if (plain ? SameName(raw, key) : SameName(ReplaceTokens(file, raw), key)) return i;
  }
  return kInfNone;
}

bool FindValue(InfFile *file, const InfSection &section, std::string_view key, std::string *value) {
  for (std::uint32_t i = FindKey(file, section, key); i != kInfNone; i = FindKey(file, section, key, i + 1)) {
    if (section.lines[i].valueCount == 0) continue;
    *value = FieldText(file, section, section.lines[i], 1);
    return true;
  }
  return false;
}

}  // namespace machine
