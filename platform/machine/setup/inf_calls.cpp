// The INF calls. A handle pairs a path with the file's facts; the text comes when a section is asked for.
#include <charconv>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/setup/inf_cache.h"
#include "platform/machine/setup/inf_handles.h"

namespace machine {
namespace {

struct OpenInf {
  std::string path;
  InfFactsRef facts;
  std::shared_ptr<InfFile> text;  // when it was at hand or a section was asked for
  bool searched = false;          // a section was asked for
};

// A handle is a number that is never given out again, so that one that was closed is recognised.
std::unordered_map<ULONG_PTR, OpenInf> handles;
ULONG_PTR lastHandle = 0;

OpenInf *FindHandle(HINF inf) {
  const auto found = handles.find(reinterpret_cast<ULONG_PTR>(inf));
  if (found != handles.end()) return &found->second;
  platform::SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

InfFile *TextForSearch(OpenInf *open) {
  open->searched = true;
  if (open->text == nullptr) open->text = machine::LoadInfText(open->facts, open->path.c_str());
  return open->text.get();
}

// A line that a context stands on.
struct Position {
  InfFile *file = nullptr;
  const InfSection *section = nullptr;
  const InfLine *line = nullptr;
};

// False, with the last error set, when the context is on no line.
bool Resolve(const INFCONTEXT *context, Position *position) {
  if (context == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  OpenInf *open = FindHandle(context->Inf);
  if (open == nullptr) return false;
  position->file = TextForSearch(open);
  if (position->file == nullptr) return false;
  if (context->Section >= position->file->sections.size()) return FailWith(ERROR_INVALID_PARAMETER);
  position->section = &ParsedSection(position->file, context->Section);
  if (context->Line >= position->section->lines.size()) return FailWith(ERROR_INVALID_PARAMETER);
  position->line = &position->section->lines[context->Line];
  return true;
}

// The same, for a context whose line has that field.
bool ResolveField(const INFCONTEXT *context, DWORD index, Position *position) {
  if (!Resolve(context, position)) return false;
  return HasField(*position->line, index) || FailWith(ERROR_INVALID_PARAMETER);
}

std::string TextAt(const Position &position, DWORD index) {
  return FieldText(position.file, *position.section, *position.line, index);
}

// Decimal with an optional sign, or hexadecimal after 0x. Up to 32 bits, whichever way they are meant.
bool ParseInteger(std::string_view text, int *value) {
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (hexadecimal) {
    text.remove_prefix(2);
    if (text.front() == '-') return false;
  } else if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
    text.remove_prefix(1);
  }
  std::int64_t number = 0;
  const char *end = text.data() + text.size();
  const std::from_chars_result read = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
  if (read.ec != std::errc() || read.ptr != end || number < INT32_MIN || number > UINT32_MAX) return false;
  *value = static_cast<int>(static_cast<std::uint32_t>(number));
  return true;
}

// One or two hexadecimal digits.
bool ParseByte(std::string_view text, char *value) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
  unsigned char number = 0;
  const char *end = text.data() + text.size();
  const std::from_chars_result read = std::from_chars(text.data(), end, number, 16);
  if (text.size() > 2 || read.ec != std::errc() || read.ptr != end) return false;
  *value = static_cast<char>(number);
  return true;
}

// The list of the latest size query, so that the read which follows lists nothing anew. Any later query does.
struct PendingList {
  std::string directory;
  std::string names;  // as a multi-string; empty: none
};

PendingList pending;

bool BuildList(const std::string &directory, std::string *list) {
  std::vector<std::string> names;
  if (!ListInfFiles(directory.c_str(), &names)) return false;
  for (const std::string &name : names) *list += WithTerminator(name);
  *list += '\0';
  return true;
}

// SP_INF_INFORMATION::VersionData: the length of what follows, the INF's path and a NUL, its facts' [Version].
std::string InformationOf(const OpenInf &open) {
  const SP_INF_INFORMATION head = {INF_STYLE_WIN4, 1, {}};
  const auto length = static_cast<DWORD>(open.path.size() + 1 + open.facts->version.size());
  std::string record;
  record.reserve(offsetof(SP_INF_INFORMATION, VersionData) + sizeof length + length);
  record.append(reinterpret_cast<const char *>(&head), offsetof(SP_INF_INFORMATION, VersionData));
  record.append(reinterpret_cast<const char *>(&length), sizeof length);
  record.append(WithTerminator(open.path)).append(open.facts->version);
  return record;
}

std::string_view TakeText(std::string_view *data) {
  const std::string_view text = data->substr(0, data->find('\0'));
  data->remove_prefix(std::min(data->size(), text.size() + 1));
  return text;
}

// A value of [Version] as the facts have it, with its tokens replaced. False when there is no such key.
bool FindVersionValue(std::string_view version, const std::string &path, const char *key, std::string *value) {
  while (!version.empty()) {
    const std::string_view name = TakeText(&version);
    const std::string_view raw = TakeText(&version);
    if (!SameName(name, key)) continue;
    *value = raw;
    if (raw.find('%') == std::string_view::npos) return true;
    const InfFactsRef facts = FindInf(path.c_str());
    const std::shared_ptr<InfFile> text = facts != nullptr ? machine::LoadInfText(facts, path.c_str()) : nullptr;
    if (text != nullptr) *value = ReplaceTokens(text.get(), raw);
    return true;
  }
  return false;
}

bool IsOfClass(const OpenInf &open, const char *infClass) {
  std::string name;
  FindVersionValue(open.facts->version, open.path, "Class", &name);
  return SameName(name, infClass) || SameName(open.facts->classGuid, infClass);
}

}  // namespace

void CloseInfHandles() {
  handles.clear();
  pending = {};
}

std::size_t OpenInfHandles() { return handles.size(); }

std::string InfPathOf(const char *fileName) {
  const std::string_view name = fileName;
  return name.find_first_of("\\/:") == std::string_view::npos ? InfDirectory() + "\\" + fileName : fileName;
}

}  // namespace machine

namespace platform {

using namespace machine;

HINF SetupOpenInfFileA(const char *fileName, const char *infClass, DWORD style, UINT *errorLine) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
  if (errorLine != nullptr) *errorLine = 0;
  if (CurrentOrNotReady() == nullptr) return INVALID_HANDLE_VALUE;
  if (fileName == nullptr || (style & INF_STYLE_WIN4) == 0) return machine::FailOpen(ERROR_INVALID_PARAMETER);
  OpenInf open;
  open.path = InfPathOf(fileName);
  open.facts = FindInf(open.path.c_str(), &open.text);
  if (open.facts == nullptr) return INVALID_HANDLE_VALUE;
  if (!open.facts->modern) {
    if (errorLine != nullptr) *errorLine = open.facts->problemLine;
    SetLastError(open.facts->problem != 0 ? open.facts->problem : ERROR_WRONG_INF_STYLE);
    return INVALID_HANDLE_VALUE;
  }
  if (infClass != nullptr && !IsOfClass(open, infClass)) return machine::FailOpen(ERROR_CLASS_MISMATCH);
  lastHandle += 4;
  handles.emplace(lastHandle, std::move(open));
  return reinterpret_cast<HINF>(lastHandle);
}

void SetupCloseInfFile(HINF inf) {
  OpenInf *open = FindHandle(inf);
  if (open == nullptr) return;
  if (open->searched) RecountText(open->facts);
  handles.erase(reinterpret_cast<ULONG_PTR>(inf));
}

BOOL SetupFindFirstLineA(HINF inf, const char *section, const char *key, INFCONTEXT *context) {
  VXR_FAULT(FALSE, ERROR_LINE_NOT_FOUND);
  OpenInf *open = FindHandle(inf);
  if (open == nullptr) return FALSE;
  if (section == nullptr || context == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  InfFile *file = TextForSearch(open);
  if (file == nullptr) return FALSE;
  const std::uint32_t index = FindSectionIndex(*file, section);
  if (index == kInfNone) return FailWith(ERROR_LINE_NOT_FOUND);
  const InfSection &found = ParsedSection(file, index);
  const std::uint32_t line = key == nullptr ? 0 : FindKey(file, found, key);
  if (line >= found.lines.size()) return FailWith(ERROR_LINE_NOT_FOUND);
  *context = {inf, inf, index, line};
  return TRUE;
}

BOOL SetupFindNextLine(INFCONTEXT *contextIn, INFCONTEXT *contextOut) {
  VXR_FAULT(FALSE, ERROR_LINE_NOT_FOUND);
  Position position;
  if (!Resolve(contextIn, &position)) return FALSE;
  if (contextOut == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (contextIn->Line + 1 >= position.section->lines.size()) return FailWith(ERROR_LINE_NOT_FOUND);
  *contextOut = {contextIn->Inf, contextIn->CurrentInf, contextIn->Section, contextIn->Line + 1};
  return TRUE;
}

DWORD SetupGetFieldCount(INFCONTEXT *context) {
  VXR_FAULT(0, ERROR_INVALID_PARAMETER);
  Position position;
  return Resolve(context, &position) ? position.line->valueCount : 0;
}

BOOL SetupGetStringFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  Position position;
  if (!ResolveField(context, index, &position)) return FALSE;
  return Answer(WithTerminator(TextAt(position, index)), SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupGetMultiSzFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  Position position;
  if (index == 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (!ResolveField(context, index, &position)) return FALSE;
  std::string list;
  for (DWORD field = index; field <= position.line->valueCount; ++field) {
    const std::string text = TextAt(position, field);
    if (text.empty()) break;  // which would end the list for its reader
    list += WithTerminator(text);
    if (list.size() > kInfSizeMax) return FailWith(ERROR_INVALID_DATA);  // tokens that multiply a hostile line
  }
  list += '\0';
  return Answer(list, SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupGetIntField(INFCONTEXT *context, DWORD index, int *value) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  Position position;
  if (value == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (!ResolveField(context, index, &position)) return FALSE;
  return ParseInteger(TextAt(position, index), value) ? TRUE : FailWith(ERROR_INVALID_DATA);
}

BOOL SetupGetBinaryField(INFCONTEXT *context, DWORD index, BYTE *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  Position position;
  if (index == 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (!ResolveField(context, index, &position)) return FALSE;
  std::string bytes(position.line->valueCount - index + 1, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!ParseByte(TextAt(position, index + static_cast<DWORD>(i)), &bytes[i])) return FailWith(ERROR_INVALID_DATA);
  }
  return Answer(bytes, SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupGetInfFileListA(const char *directory, DWORD style, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_PATH_NOT_FOUND);
  if (CurrentOrNotReady() == nullptr) return FALSE;
  if ((style & INF_STYLE_WIN4) == 0) return FailWith(ERROR_INVALID_PARAMETER);
  const std::string path = directory != nullptr ? directory : InfDirectory();
  const bool query = buffer == nullptr && size == 0;
  PendingList list;
  std::swap(list, pending);
  if (query || list.names.empty() || list.directory != path) {
    list = {path, {}};
    if (!BuildList(path, &list.names)) return FALSE;
  }
  const BOOL answered = Answer(list.names, SizeAlone::kSucceeds, buffer, size, requiredSize);
  if (query || !answered) pending = std::move(list);
  return answered;
}

BOOL SetupGetInfInformationA(const void *infSpec, DWORD searchControl, SP_INF_INFORMATION *buffer, DWORD size,
                             DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  if (searchControl != INFINFO_INF_SPEC_IS_HINF) return FailWith(ERROR_INVALID_PARAMETER);
  const OpenInf *open = FindHandle(const_cast<HINF>(infSpec));
  if (open == nullptr) return FALSE;
  return Answer(InformationOf(*open), SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupQueryInfVersionInformationA(SP_INF_INFORMATION *information, UINT infIndex, const char *key, char *buffer,
                                      DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  if (CurrentOrNotReady() == nullptr) return FALSE;
  if (information == nullptr || key == nullptr || infIndex >= information->InfCount) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  DWORD length = 0;
  std::memcpy(&length, information->VersionData, sizeof length);
  std::string_view data(reinterpret_cast<const char *>(information->VersionData) + sizeof length, length);
  const std::string path(TakeText(&data));
  std::string value;
  if (!FindVersionValue(data, path, key, &value)) return FailWith(ERROR_INVALID_DATA);
  return Answer(WithTerminator(value), SizeAlone::kSucceeds, buffer, size, requiredSize);
}

}  // namespace platform
