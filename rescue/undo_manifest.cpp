#include "rescue/undo_manifest.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <set>

using Json = nlohmann::ordered_json;
using machine::Status;

namespace rescue {
namespace {

constexpr unsigned kFormat = 1;
constexpr std::size_t kMostChanges = 4096;  // ten times what a large injection makes
constexpr const char *kTimeForm = "%Y-%m-%dT%H:%M:%SZ";
constexpr const char *kKinds[] = {"file", "hive", "directory"};

// --- Names: UTF-8 is not promised, and JSON takes nothing else ------------------------------------------------------

// "%" and every byte that is no printable ASCII as "%" and two hexadecimal digits.
std::string Encoded(const std::string &name) {
  constexpr const char *kDigits = "0123456789ABCDEF";
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F && c != '%') {
      text += c;
    } else {
      text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

int HexadecimalDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool Decode(const std::string &text, std::string *name) {
  name->clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      *name += text[i];
      continue;
    }
    if (text.size() - i < 3) return false;
    const int high = HexadecimalDigit(text[i + 1]), low = HexadecimalDigit(text[i + 2]);
    if (high < 0 || low < 0) return false;
    *name += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return true;
}

// --- Writing --------------------------------------------------------------------------------------------------------

Json StateJson(const FileState &state) { return {{"size", state.size}, {"sha256", state.digest}}; }

Json ChangeJson(const UndoChange &change) {
  Json json = {{"kind", kKinds[static_cast<int>(change.kind)]}, {"path", Encoded(change.path)}, {"before", nullptr}};
  if (change.before) {
    json["before"] = StateJson(change.before->state);
    json["before"]["kept"] = change.before->kept;
  }
  json["after"] = change.kind == ChangeKind::kDirectory ? Json() : StateJson(change.after);
  for (const HiveLogState &log : change.logs) {
    Json state = StateJson(log.state);
    state["name"] = Encoded(log.name);
    json["logs"].push_back(std::move(state));
  }
  return json;
}

// --- Reading --------------------------------------------------------------------------------------------------------

const Json *Member(const Json &object, const char *name) {
  const auto found = object.find(name);
  return found == object.end() ? nullptr : &*found;
}

bool ReadText(const Json &object, const char *name, std::string *text) {
  const Json *member = Member(object, name);
  if (member == nullptr || !member->is_string()) return false;
  *text = member->get_ref<const std::string &>();
  return true;
}

bool ReadName(const Json &object, const char *name, std::string *decoded) {
  std::string text;
  return ReadText(object, name, &text) && Decode(text, decoded) && IsPathBelow(*decoded);
}

bool ReadState(const Json *object, FileState *state) {
  if (object == nullptr) return false;
  const Json *size = Member(*object, "size");
  if (size == nullptr || !size->is_number_unsigned() || !ReadText(*object, "sha256", &state->digest)) return false;
  state->size = size->get<std::uint64_t>();
  return state->size <= INT64_MAX && state->digest.size() == 64 &&
         state->digest.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool ReadBefore(const Json &object, UndoChange *change) {
  const Json *before = Member(object, "before");
  if (before == nullptr) return false;
  if (before->is_null()) return change->kind != ChangeKind::kHive;
  if (change->kind == ChangeKind::kDirectory) return false;
  change->before.emplace();
  return ReadState(before, &change->before->state) && ReadText(*before, "kept", &change->before->kept) &&
         IsKeptName(change->before->kept);
}

bool ReadLogs(const Json &object, std::vector<HiveLogState> *logs) {
  const Json *list = Member(object, "logs");
  if (list == nullptr) return true;
  if (!list->is_array()) return false;
  for (const Json &log : *list) {
    HiveLogState state;
    if (!ReadState(&log, &state.state) || !ReadName(log, "name", &state.name)) return false;
    logs->push_back(std::move(state));
  }
  return true;
}

// Null, or what is wrong.
const char *ReadChange(const Json &object, UndoChange *change) {
  std::string kind;
  if (!ReadName(object, "path", &change->path)) return "a path that does not stay below the volume's root";
  if (!ReadText(object, "kind", &kind)) return "a change without a kind";
  const auto found = std::find(std::begin(kKinds), std::end(kKinds), kind);
  if (found == std::end(kKinds)) return "a change of an unknown kind";
  change->kind = static_cast<ChangeKind>(found - std::begin(kKinds));
  if (!ReadBefore(object, change)) return "a change whose old state is none";
  if (change->kind == ChangeKind::kDirectory) return nullptr;
  if (!ReadState(Member(object, "after"), &change->after)) return "a change whose new state is none";
  return ReadLogs(object, &change->logs) ? nullptr : "a log that is none";
}

const char *ReadHead(const Json &document, UndoManifest *manifest) {
  std::string time;
  std::tm parts = {};
  if (!ReadText(document, "program", &manifest->program)) return "no program";
  if (!ReadText(document, "time", &time)) return "no time";
  const char *end = strptime(time.c_str(), kTimeForm, &parts);
  if (end == nullptr || *end != '\0') return "a time that is none";
  manifest->time = timegm(&parts);
  const Json *forgot = Member(document, "forgot_hibernation");
  manifest->forgotHibernation = forgot != nullptr && *forgot == true;
  return nullptr;
}

Status Damaged(const std::string &what) {
  return Status::Refused("has a damaged manifest (" + what + "); nothing can be taken back with it");
}

}  // namespace

bool IsPathBelow(const std::string &path) {
  if (path.find('\0') != std::string::npos) return false;
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string name = path.substr(at, end - at);
    if (name.empty() || name == "." || name == ".." || name.size() > 255) return false;
    at = end + 1;
  }
  return true;
}

bool IsKeptName(const std::string &name) {
  return !name.empty() && name.size() < 10 && name.find_first_not_of("0123456789") == std::string::npos;
}

std::string TimeText(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts = {};
  char text[64] = "";
  if (gmtime_r(&seconds, &parts) != nullptr) std::strftime(text, sizeof text, kTimeForm, &parts);
  return text;
}

std::string ManifestText(const UndoManifest &manifest) {
  Json document = {{"format", kFormat}, {"program", manifest.program}, {"time", TimeText(manifest.time)}};
  if (manifest.forgotHibernation) document["forgot_hibernation"] = true;
  Json &changes = document["changes"] = Json::array();
  for (const UndoChange &change : manifest.changes) changes.push_back(ChangeJson(change));
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Status ReadManifestText(const std::string &text, UndoManifest *manifest) {
  const Json document = Json::parse(text, nullptr, false);
  if (!document.is_object()) return Damaged("it is no JSON object");
  const Json *format = Member(document, "format");
  if (format == nullptr || !format->is_number_unsigned()) return Damaged("no format");
  if (*format != kFormat) return Status::Refused("was made by a newer vxr; take it back with that one");
  if (const char *wrong = ReadHead(document, manifest)) return Damaged(wrong);
  const Json *changes = Member(document, "changes");
  if (changes == nullptr || !changes->is_array()) return Damaged("no changes");
  if (changes->size() > kMostChanges) return Damaged("too many changes");
  std::set<std::string> paths;
  for (const Json &object : *changes) {
    UndoChange &change = manifest->changes.emplace_back();
    if (const char *wrong = ReadChange(object, &change)) return Damaged(wrong);
    if (!paths.insert(change.path).second) return Damaged("one path twice");
  }
  return {};
}

}  // namespace rescue
