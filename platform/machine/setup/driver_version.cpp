#include "platform/machine/setup/driver_version.h"

#include <charconv>
#include <chrono>

#include "platform/machine/base/file_time.h"

namespace machine {
namespace {

// Takes a number up to one of the separators, or to the end. False when there is none.
bool TakeNumber(std::string_view *text, std::string_view separators, unsigned *number) {
  const std::size_t length = text->find_first_of(separators);
  const std::string_view digits = text->substr(0, length);
  text->remove_prefix(length == std::string_view::npos ? text->size() : length + 1);
  const std::from_chars_result read = std::from_chars(digits.data(), digits.data() + digits.size(), *number);
  return read.ec == std::errc() && read.ptr == digits.data() + digits.size();
}

}  // namespace

FILETIME ParseDriverDate(std::string_view text) {
  unsigned month = 0, day = 0, year = 0;
  constexpr std::string_view kSeparators = "/-";
  if (!TakeNumber(&text, kSeparators, &month) || !TakeNumber(&text, kSeparators, &day) ||
      !TakeNumber(&text, kSeparators, &year) || !text.empty() || year < 1601 || year > 9999) {
    return {};
  }
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                         std::chrono::day(day));
  if (!date.ok()) return {};
  return FileTimeOf(std::chrono::seconds(std::chrono::sys_days(date).time_since_epoch()).count(), 0);
}

DWORD64 ParseDriverVersion(std::string_view text) {
  DWORD64 version = 0;
  for (int shift = 48; shift >= 0 && !text.empty(); shift -= 16) {
    unsigned part = 0;
    if (!TakeNumber(&text, ".", &part) || part > 0xFFFF) return 0;
    version |= DWORD64{part} << shift;
  }
  return text.empty() ? version : 0;
}

}  // namespace machine
