// The INF calls. A handle pairs a path with the file's facts; the text comes when a section is asked for.
#include <charconv>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handle_table.h"
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

HandleTable<OpenInf> handles;

// Has the text at hand, of an INF that is open, to search it.
Status OpenText(HINF inf, InfFile **file) {
  OpenInf *open = FindIn(&handles, inf);
  if (open == nullptr) return Status::Windows(ERROR_INVALID_HANDLE);
  open->searched = true;
  Status loaded = open->text != nullptr ? Status() : LoadInfText(open->facts, open->path.c_str(), &open->text);
  *file = open->text.get();
  return loaded;
}

// A line that a context stands on.
struct Position {
  InfFile *file = nullptr;
  const InfSection *section = nullptr;
  const InfLine *line = nullptr;
};

// Fails when the context is on no line.
Status Resolve(const INFCONTEXT *context, Position *position) {
  if (context == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  if (Status opened = OpenText(context->Inf, &position->file); !opened) return opened;
  if (context->Section >= position->file->sections.size()) return Status::Windows(ERROR_INVALID_PARAMETER);
  position->section = &ParsedSection(position->file, context->Section);
  if (context->Line >= position->section->lines.size()) return Status::Windows(ERROR_INVALID_PARAMETER);
  position->line = &position->section->lines[context->Line];
  return {};
}

// The same, for a context whose line has that field.
Status ResolveField(const INFCONTEXT *context, DWORD index, Position *position) {
  if (Status resolved = Resolve(context, position); !resolved) return resolved;
  return HasField(*position->line, index) ? Status() : Status::Windows(ERROR_INVALID_PARAMETER);
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

Status BuildList(const std::string &directory, std::string *list) {
  std::vector<std::string> names;
  if (Status listed = ListInfFiles(directory.c_str(), &names); !listed) return listed;
  for (const std::string &name : names) *list += WithTerminator(name);
  *list += '\0';
  return {};
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
    InfFactsRef facts;
    std::shared_ptr<InfFile> text;
    if (FindInf(path.c_str(), &facts) && LoadInfText(facts, path.c_str(), &text)) {
      *value = ReplaceTokens(text.get(), raw);
    }
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
  handles.records.clear();
  pending = {};
}

std::size_t OpenInfHandles() { return handles.records.size(); }

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
  if (Current() == nullptr) return machine::FailOpen(ERROR_NOT_READY);
  if (fileName == nullptr || (style & INF_STYLE_WIN4) == 0) return machine::FailOpen(ERROR_INVALID_PARAMETER);
  OpenInf open;
  open.path = InfPathOf(fileName);
  if (const Status found = FindInf(open.path.c_str(), &open.facts, &open.text); !found) return machine::FailOpen(found);
  if (!open.facts->modern) {
    if (errorLine != nullptr) *errorLine = open.facts->problemLine;
    return machine::FailOpen(open.facts->problem != 0 ? open.facts->problem : ERROR_WRONG_INF_STYLE);
  }
  if (infClass != nullptr && !IsOfClass(open, infClass)) return machine::FailOpen(ERROR_CLASS_MISMATCH);
  return AddTo<HINF>(&handles, std::move(open));
}

void SetupCloseInfFile(HINF inf) {
  const OpenInf *open = FindIn(&handles, inf);
  if (open == nullptr) return SetLastError(ERROR_INVALID_HANDLE);
  if (open->searched) RecountText(open->facts);
  DropFrom(&handles, inf);
}

BOOL SetupFindFirstLineA(HINF inf, const char *section, const char *key, INFCONTEXT *context) {
  VXR_FAULT(FALSE, ERROR_LINE_NOT_FOUND);
  if (FindIn(&handles, inf) == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  if (section == nullptr || context == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  InfFile *file = nullptr;
  if (const Status opened = OpenText(inf, &file); !opened) return FailWith(opened);
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
  if (const Status resolved = Resolve(contextIn, &position); !resolved) return FailWith(resolved);
  if (contextOut == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (contextIn->Line + 1 >= position.section->lines.size()) return FailWith(ERROR_LINE_NOT_FOUND);
  *contextOut = {contextIn->Inf, contextIn->CurrentInf, contextIn->Section, contextIn->Line + 1};
  return TRUE;
}

DWORD SetupGetFieldCount(INFCONTEXT *context) {
  VXR_FAULT(0, ERROR_INVALID_PARAMETER);
  Position position;
  const Status resolved = Resolve(context, &position);
  return resolved ? position.line->valueCount : FailWith(resolved, 0u);
}

BOOL SetupGetStringFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  Position position;
  if (const Status resolved = ResolveField(context, index, &position); !resolved) return FailWith(resolved);
  return Answer(WithTerminator(TextAt(position, index)), SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupGetMultiSzFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  Position position;
  if (index == 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (const Status resolved = ResolveField(context, index, &position); !resolved) return FailWith(resolved);
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
  if (const Status resolved = ResolveField(context, index, &position); !resolved) return FailWith(resolved);
  return ParseInteger(TextAt(position, index), value) ? TRUE : FailWith(ERROR_INVALID_DATA);
}

BOOL SetupGetBinaryField(INFCONTEXT *context, DWORD index, BYTE *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  Position position;
  if (index == 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (const Status resolved = ResolveField(context, index, &position); !resolved) return FailWith(resolved);
  std::string bytes(position.line->valueCount - index + 1, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!ParseByte(TextAt(position, index + static_cast<DWORD>(i)), &bytes[i])) return FailWith(ERROR_INVALID_DATA);
  }
  return Answer(bytes, SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupGetInfFileListA(const char *directory, DWORD style, char *buffer, DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_PATH_NOT_FOUND);
  if (Current() == nullptr) return FailWith(ERROR_NOT_READY);
  if ((style & INF_STYLE_WIN4) == 0) return FailWith(ERROR_INVALID_PARAMETER);
  const std::string path = directory != nullptr ? directory : InfDirectory();
  const bool query = buffer == nullptr && size == 0;
  PendingList list;
  std::swap(list, pending);
  if (query || list.names.empty() || list.directory != path) {
    list = {path, {}};
    if (const Status built = BuildList(path, &list.names); !built) return FailWith(built);
  }
  const BOOL answered = Answer(list.names, SizeAlone::kSucceeds, buffer, size, requiredSize);
  if (query || !answered) pending = std::move(list);
  return answered;
}

BOOL SetupGetInfInformationA(const void *infSpec, DWORD searchControl, SP_INF_INFORMATION *buffer, DWORD size,
                             DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  if (searchControl != INFINFO_INF_SPEC_IS_HINF) return FailWith(ERROR_INVALID_PARAMETER);
  const OpenInf *open = FindIn(&handles, infSpec);
  if (open == nullptr) return FailWith(ERROR_INVALID_HANDLE);
  return Answer(InformationOf(*open), SizeAlone::kSucceeds, buffer, size, requiredSize);
}

BOOL SetupQueryInfVersionInformationA(SP_INF_INFORMATION *information, UINT infIndex, const char *key, char *buffer,
                                      DWORD size, DWORD *requiredSize) {
  VXR_FAULT(FALSE, ERROR_INVALID_DATA);
  if (Current() == nullptr) return FailWith(ERROR_NOT_READY);
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
