#include "platform/inf/inf_section_table.h"

#include <algorithm>

namespace machine {
namespace {

void EnterSlot(InfFile *file, std::uint32_t section) {
  const std::size_t mask = file->slots.size() - 1;
  std::size_t slot = file->sections[section].hash & mask;
  while (file->slots[slot] != kInfNone) slot = (slot + 1) & mask;
  file->slots[slot] = section;
}

std::uint32_t FindHashed(const InfFile &file, std::string_view name, std::uint32_t hash) {
  if (file.slots.empty()) return kInfNone;
  const std::size_t mask = file.slots.size() - 1;
  for (std::size_t slot = hash & mask; file.slots[slot] != kInfNone; slot = (slot + 1) & mask) {
    const InfSection &section = file.sections[file.slots[slot]];
    if (section.hash == hash && SameName(SectionName(file, section), name)) return file.slots[slot];
  }
  return kInfNone;
}

std::uint32_t AddSection(InfFile *file, InfSpan name, std::uint32_t hash) {
  const auto index = static_cast<std::uint32_t>(file->sections.size());
  file->sections.emplace_back();
  file->sections.back().name = name;
  file->sections.back().hash = hash;
  if (file->sections.size() * 2 <= file->slots.size()) {
    EnterSlot(file, index);
    return index;
  }
  file->slots.assign(std::max<std::size_t>(64, file->slots.size() * 2), kInfNone);
  for (std::uint32_t section = 0; section <= index; ++section) EnterSlot(file, section);
  return index;
}

}  // namespace

void AddBody(InfFile *file, InfSpan name, std::size_t begin) {
  const std::string_view text = file->text.substr(name.begin, name.end - name.begin);
  const std::uint32_t hash = HashName(text);
  std::uint32_t index = FindHashed(*file, text, hash);
  if (index == kInfNone) index = AddSection(file, name, hash);
  InfSection &section = file->sections[index];
  const auto body = static_cast<std::uint32_t>(file->bodies.size());
  file->bodies.push_back({{static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(file->text.size())}});
  if (section.lastBody == kInfNone) {
    section.firstBody = body;
  } else {
    file->bodies[section.lastBody].next = body;
  }
  section.lastBody = body;
}

std::uint32_t FindSectionIndex(const InfFile &file, std::string_view name) {
  return FindHashed(file, name, HashName(name));
}

std::string_view SectionName(const InfFile &file, const InfSection &section) {
  return file.text.substr(section.name.begin, section.name.end - section.name.begin);
}

}  // namespace machine
