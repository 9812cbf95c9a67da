#include "platform/inf/inf_file.h"

#include "platform/inf/inf_decoding.h"
#include "platform/inf/inf_headers.h"
#include "platform/inf/inf_lines.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr std::size_t kUsualLine = 24;  // characters, set aside at first, for speed

}  // namespace

std::shared_ptr<const InfSettings> MakeInfSettings(unsigned codePage, unsigned language,
                                                   std::string_view windowsDirectory,
                                                   std::string_view systemDirectory) {
  auto settings = std::make_shared<InfSettings>();
  settings->codePage = codePage;
  settings->language = language;
  settings->windows = windowsDirectory;
  settings->system = systemDirectory;
  if (!windowsDirectory.empty()) settings->inf = settings->windows + "\\inf";
  if (!systemDirectory.empty()) settings->drivers = settings->system + "\\drivers";
  const auto set = [&settings](std::string_view characters, InfChar kind) {
    for (const char c : characters) settings->classes[static_cast<unsigned char>(c)] = kind;
  };
  set(" \t\v\f", InfChar::kBlank);
  set("\r\n", InfChar::kLineEnd);
  set("\"", InfChar::kQuote);
  set(";", InfChar::kComment);
  set(",", InfChar::kComma);
  set("=", InfChar::kEquals);
  set("\\", InfChar::kBackslash);
  for (unsigned byte = 0x80; byte <= 0xFF; ++byte) {
    if (!IsLeadByte(static_cast<unsigned char>(byte), codePage)) continue;
    settings->classes[byte] = InfChar::kLead;
    settings->twoByte = true;
  }
  return settings;
}

std::shared_ptr<InfFile> ReadInf(InfBytes bytes, std::shared_ptr<const InfSettings> settings, InfRefusal *refusal) {
  if (bytes.size > kInfSizeMax) {
    RefuseSize(refusal);
    return nullptr;
  }
  if (std::string_view(bytes.memory.get(), bytes.size).starts_with("\xFE\xFF")) {
    if (!settings->passOverTextBefore) {
      RefuseHighByteFirst(refusal);
      return nullptr;
    }
    for (std::size_t at = 0; at + 1 < bytes.size; at += 2) std::swap(bytes.memory[at], bytes.memory[at + 1]);
  }
  auto file = std::make_shared<InfFile>();
  file->settings = std::move(settings);
  DecodeInf(std::move(bytes), file->settings->codePage, file.get());
  return FindSections(file.get(), refusal) ? file : nullptr;
}

std::shared_ptr<InfFile> ReadInf(std::string_view bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal) {
  return ReadInf(CopyInfBytes(bytes), std::move(settings), refusal);
}

const InfSection &ParsedSection(InfFile *file, std::uint32_t index) {
  InfSection &section = file->sections[index];
  if (section.parsed) return section;
  section.parsed = true;
  std::size_t size = 0;
  for (std::uint32_t body = section.firstBody; body != kInfNone; body = file->bodies[body].next) {
    size += file->bodies[body].span.end - file->bodies[body].span.begin;
  }
  section.pool.reserve(size);
  section.lines.reserve(size / kUsualLine + 1);
  section.texts.reserve(size / kUsualLine * 2 + 2);
  for (std::uint32_t body = section.firstBody; body != kInfNone; body = file->bodies[body].next) {
    const InfSpan span = file->bodies[body].span;
    ParseLines(file->text.substr(span.begin, span.end - span.begin), *file->settings, &section);
  }
  return section;
}

const InfSection *FindSection(InfFile *file, std::string_view name) {
  const std::uint32_t index = FindSectionIndex(*file, name);
  return index == kInfNone ? nullptr : &ParsedSection(file, index);
}

bool IsModernInf(InfFile *file) {
  std::string signature;
  const InfSection *version = FindSection(file, "Version");
  if (version == nullptr || !FindValue(file, *version, "Signature", &signature)) return false;
  return SameName(signature, "$Windows NT$") || SameName(signature, "$Chicago$") || SameName(signature, "$Windows 95$");
}

std::size_t MemoryOf(const InfFile &file) {
  std::size_t size = sizeof(InfFile) + file.text.size() + file.bodies.capacity() * sizeof(InfBody) +
                     file.sections.capacity() * sizeof(InfSection) + file.slots.capacity() * sizeof(std::uint32_t) +
                     file.tokens.size() * 96;
  for (const InfSection &section : file.sections) {
    size += section.pool.capacity() + section.texts.capacity() * sizeof(InfSpan) +
            section.lines.capacity() * sizeof(InfLine);
  }
  return size;
}

}  // namespace machine
