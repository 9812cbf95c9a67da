// A settings file from outside, read and changed. A value that was written must read back, leave other settings as they
// were, and once more written change nothing, unless it has blanks around it, which join those that are there.
//
// Input: section, key and value, each ended by a line feed, then the file.
#include <algorithm>
#include <string>
#include <string_view>

#include "platform/machine/text/settings_text.h"
#include "tests/fuzz/fuzz_folder.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view TakeLine(std::string_view *input) {
  const std::string_view line = input->substr(0, input->find('\n'));
  input->remove_prefix(std::min(line.size() + 1, input->size()));
  return line;
}

// As FindSetting gives it.
std::string_view Plain(std::string_view value) {
  const std::size_t begin = std::min(value.find_first_not_of(kBlanks), value.size());
  value = value.substr(begin, value.find_last_not_of(kBlanks) + 1 - begin);
  const bool quoted = value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
  return quoted ? value.substr(1, value.size() - 2) : value;
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0 && c < 0x7F; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view file(reinterpret_cast<const char *>(data), size);
  const std::string_view section = TakeLine(&file), key = TakeLine(&file), value = TakeLine(&file);
  constexpr std::string_view kOther = "vxrcore";
  const auto other = machine::FindSetting(file, "debugging", kOther);
  (void)machine::FindSetting(file, section, key);
  if (!machine::CanChangeSettings(file) || !machine::CanHoldSetting(section, key, value)) return 0;
  // What the code page lacks does not come back.
  if (!IsAscii(section) || !IsAscii(key) || !IsAscii(value)) return 0;
  const std::string changed = machine::WithSetting(file, section, key, value);
  const auto found = machine::FindSetting(changed, section, key);
  Require(found && *found == Plain(value), "a value does not read back", found.value_or("(none)"));
  const bool blanks =
      !value.empty() && (kBlanks.find(value.front()) != kBlanks.npos || kBlanks.find(value.back()) != kBlanks.npos);
  Require(blanks || machine::WithSetting(changed, section, key, value) == changed, "it changes once more");
  if (key.size() != kOther.size()) {
    Require(machine::FindSetting(changed, "debugging", kOther) == other, "another setting has changed");
  }
  return 0;
}
