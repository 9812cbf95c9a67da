// Reader of INF files: the text of one file, its sections found in one pass, a section's lines parsed when first asked
// for. Depends on no machine, so that a tool can show a file as the reader sees it:
//
//   for (std::uint32_t s = 0; s < file->sections.size(); ++s) {
//     const InfSection &section = ParsedSection(file, s);
//     for (std::uint32_t l = 0; l < section.lines.size(); ++l) ... FieldText(file, section, section.lines[l], i)
//   }
//
// A file's text is hostile: whatever it holds, reading takes time and memory in proportion to its size.
#pragma once

#include "platform/inf/inf_fields.h"
#include "platform/inf/inf_records.h"
#include "platform/inf/inf_section_table.h"
#include "platform/inf/inf_tokens.h"
#include "platform/inf/inf_values.h"

namespace machine {

// `windowsDirectory` and `systemDirectory` may be empty: directory ids then stay as they stand.
std::shared_ptr<const InfSettings> MakeInfSettings(unsigned codePage, unsigned language,
                                                   std::string_view windowsDirectory = {},
                                                   std::string_view systemDirectory = {});

// Null when it is not INF text: `*refusal`, when given, then says why. Whether it is a modern-style INF is another
// question (IsModernInf).
std::shared_ptr<InfFile> ReadInf(InfBytes bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal = nullptr);
// The same of a copy.
std::shared_ptr<InfFile> ReadInf(std::string_view bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal = nullptr);

// The section with its lines parsed. `index` is below file->sections.size(). The reference lives as long as the file.
const InfSection &ParsedSection(InfFile *file, std::uint32_t index);
// Both in one; null when there is no such section.
const InfSection *FindSection(InfFile *file, std::string_view name);

// Whether [Version] has the Signature of a modern-style INF.
bool IsModernInf(InfFile *file);

// Bytes that the file takes up in memory, about.
std::size_t MemoryOf(const InfFile &file);

}  // namespace machine
