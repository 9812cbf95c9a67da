#include "package/choose/rank.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/inf/inf_file.h"

namespace package {
namespace {

constexpr DWORD kLineCompatible = 0x1000, kDeviceCompatible = 0x2000;  // what a compatible id on either side adds
constexpr DWORD kLinePosition = 0x100;  // what each further compatible id of the line adds
constexpr std::size_t kNoId = SIZE_MAX;

constexpr long long kSecondsTo1970 = 11644473600;  // from 1601 on
constexpr DWORD64 kTicks = 10'000'000;             // in a second

std::size_t IdNumber(const std::vector<std::string> &ids, const std::string &id) {
  for (std::size_t i = 0; i < ids.size(); ++i) {
    if (machine::SameName(ids[i], id)) return i;
  }
  return kNoId;
}

std::vector<std::string> Texts(const char *texts) {
  std::vector<std::string> list;
  for (; texts != nullptr && *texts != '\0'; texts += std::strlen(texts) + 1) list.emplace_back(texts);
  return list;
}

// A position as part of a score, whose other digits it must not reach.
DWORD Digits(std::size_t position, DWORD most) { return static_cast<DWORD>(std::min<std::size_t>(position, most)); }

// Takes a number up to one of the separators, or to the end. False when there is none.
bool TakeNumber(std::string_view *text, std::string_view separators, unsigned *number) {
  const std::size_t length = text->find_first_of(separators);
  const std::string_view digits = text->substr(0, length);
  text->remove_prefix(length == text->npos ? text->size() : length + 1);
  const std::from_chars_result read = std::from_chars(digits.data(), digits.data() + digits.size(), *number);
  return read.ec == std::errc() && read.ptr == digits.data() + digits.size();
}

}  // namespace

DeviceIds IdsOf(const char *hardware, const char *compatible) { return {Texts(hardware), Texts(compatible)}; }

bool HasId(const DeviceIds &device, const std::string &id) {
  return IdNumber(device.hardware, id) != kNoId || IdNumber(device.compatible, id) != kNoId;
}

DWORD IdentifierScore(const DeviceIds &device, const std::string &id, std::size_t position) {
  if (id.empty()) return kNoMatch;
  if (const std::size_t i = IdNumber(device.hardware, id); i != kNoId) {
    return (position == 0 ? 0 : kLineCompatible) + Digits(i, 0xFFF);
  }
  const std::size_t j = IdNumber(device.compatible, id);
  if (j == kNoId) return kNoMatch;
  if (position == 0) return kDeviceCompatible + Digits(j, 0xFFF);
  return kDeviceCompatible + kLineCompatible + Digits(position - 1, 0xF) * kLinePosition + Digits(j, 0xFF);
}

DWORD RankValue(DWORD identifierScore, DWORD featureScore, const Target &target) {
  const DWORD score = AtLeast(target, 6, 0) ? featureScore & 0xFF : kDefaultFeatureScore;
  return score << 16 | (identifierScore & 0xFFFF);
}

bool Better(const Rank &a, const Rank &b) {
  if (a.value != b.value) return a.value < b.value;
  if (a.date != b.date) return a.date > b.date;
  if (a.version != b.version) return a.version > b.version;
  const int order = machine::FoldAnsiName(a.path).compare(machine::FoldAnsiName(b.path));
  return order != 0 ? order < 0 : a.path < b.path;
}

DWORD64 ParseDriverDate(const std::string &text) {
  std::string_view rest = text;
  unsigned month = 0, day = 0, year = 0;
  constexpr std::string_view kSeparators = "/-";
  if (!TakeNumber(&rest, kSeparators, &month) || !TakeNumber(&rest, kSeparators, &day) ||
      !TakeNumber(&rest, kSeparators, &year) || !rest.empty() || year < 1601 || year > 9999) {
    return 0;
  }
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                         std::chrono::day(day));
  if (!date.ok()) return 0;
  const auto since1970 = std::chrono::seconds(std::chrono::sys_days(date).time_since_epoch()).count();
  return static_cast<DWORD64>(since1970 + kSecondsTo1970) * kTicks;
}

DWORD64 ParseDriverVersion(const std::string &text) {
  std::string_view rest = text;
  DWORD64 version = 0;
  for (int shift = 48; shift >= 0 && !rest.empty(); shift -= 16) {
    unsigned part = 0;
    if (!TakeNumber(&rest, ".", &part) || part > 0xFFFF) return 0;
    version |= DWORD64{part} << shift;
  }
  return rest.empty() ? version : 0;
}

std::string DateText(DWORD64 date) {
  if (date == 0) return {};
  const auto since1970 = static_cast<long long>(date / kTicks) - kSecondsTo1970;
  const std::chrono::sys_days days(std::chrono::floor<std::chrono::days>(std::chrono::seconds(since1970)));
  const std::chrono::year_month_day parts(days);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(parts.year()),
                static_cast<unsigned>(parts.month()), static_cast<unsigned>(parts.day()));
  return text;
}

}  // namespace package
