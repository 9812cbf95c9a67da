#include "tools/vxr/base/choice_lines.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "vxrcore/events.h"

namespace {

constexpr std::string_view kChoice = "CHECK:FindDeviceDriver:", kChoiceWarning = "WARNG:FindDeviceDriver:",
                           kRemark = "WARNG:ReportRemarks:", kChosen = "chosen:", kOwn = "restored system",
                           kRefused = ":refused:", kUnread = ":passed over:", kService = ":service=",
                           kIndexed = "Total ";

// What stands before, between and behind the marks, which come in this order; nothing when one is missing.
std::vector<std::string> Split(std::string_view line, std::initializer_list<std::string_view> marks) {
  std::vector<std::string> parts;
  for (const std::string_view mark : marks) {
    const std::size_t at = line.find(mark);
    if (at == line.npos) return {};
    parts.emplace_back(line.substr(0, at));
    line.remove_prefix(at + mark.size());
  }
  parts.emplace_back(line);
  return parts;
}

const char *NullWhenEmpty(const std::string &text) { return text.empty() ? nullptr : text.c_str(); }

std::uint32_t RankOf(const std::string &text) {
  std::uint32_t rank = 0;
  if (text.starts_with("0x")) std::from_chars(text.data() + 2, text.data() + text.size(), rank, 16);
  return rank;
}

// "2013-03-26" as 100 ns since 1601; 0 for another text.
std::uint64_t DateOf(const std::string &text) {
  constexpr std::int64_t kTicksPerDay = 864000000000, kDaysTo1970 = 134774;
  int year = 0;
  unsigned month = 0, day = 0;
  if (std::sscanf(text.c_str(), "%d-%u-%u", &year, &month, &day) != 3) return 0;
  const std::chrono::sys_days days = std::chrono::year(year) / static_cast<int>(month) / std::chrono::day(day);
  return static_cast<std::uint64_t>((days.time_since_epoch().count() + kDaysTo1970) * kTicksPerDay);
}

void TellCandidate(const std::vector<std::string> &parts, EventSink sink) {
  const std::string &inf = parts[0], &id = parts[1], &section = parts[2], &version = parts[5], &service = parts[6];
  sink({VXRMACHINE_CANDIDATE, RankOf(parts[3]), DateOf(parts[4]), inf.c_str(), id.c_str(), nullptr});
  sink({VXRMACHINE_CANDIDATE_DRIVER, 0, 0, NullWhenEmpty(service), version.c_str(), section.c_str()});
}

void TellOwn(const std::vector<std::string> &parts, EventSink sink) {
  const std::string &id = parts[1], &inf = parts[2];
  const std::string service = parts[5].substr(0, parts[5].rfind(':'));  // how it starts stands behind
  sink({VXRMACHINE_OWN_DRIVER, RankOf(parts[3]), DateOf(parts[4]), NullWhenEmpty(service), id.c_str(), inf.c_str()});
}

void TellChosen(std::string_view line, EventSink sink) {
  const std::size_t at = line.rfind(kService);
  if (at == line.npos) return;
  const std::string inf(line.substr(0, at)), service(line.substr(at + kService.size()));
  sink({VXRMACHINE_CANDIDATE_CHOSEN, 0, 0, inf == "the restored system's own driver" ? nullptr : inf.c_str(),
        service == "none needed" ? nullptr : service.c_str(), nullptr});
}

void TellIndexed(std::string_view line, EventSink sink) {
  std::uint64_t files = 0;
  if (std::from_chars(line.data(), line.data() + line.size(), files).ec == std::errc()) {
    sink({VXRMACHINE_INF_INDEXED, 0, files, nullptr, nullptr, nullptr});
  }
}

void TellCheck(std::string_view line, EventSink sink) {
  if (line.starts_with(kIndexed)) return TellIndexed(line.substr(kIndexed.size()), sink);
  if (line.starts_with(kChosen)) return TellChosen(line.substr(kChosen.size()), sink);
  if (line.starts_with(kOwn)) {
    const auto own = Split(line, {":id=", ":inf=", ":rank=", ":date=", kService});
    if (!own.empty()) TellOwn(own, sink);
    return;
  }
  const auto candidate = Split(line, {":id=", ":section=", ":rank=", ":date=", ":version=", kService});
  if (!candidate.empty()) return TellCandidate(candidate, sink);
  const std::size_t refused = line.find(kRefused);
  if (refused == line.npos) return;
  const auto reason = Split(line.substr(refused + kRefused.size()), {":"});
  if (!reason.empty()) {
    sink({VXRMACHINE_CANDIDATE_REFUSED, 0, 0, reason[0].c_str(), reason[1].c_str(), nullptr});
  }
}

}  // namespace

void TellChoiceLine(std::string_view line, EventSink sink) {
  if (line.starts_with(kChoice)) TellCheck(line.substr(kChoice.size()), sink);
  if (line.starts_with(kRemark)) {
    const std::string warning(line.substr(kRemark.size()));
    sink({VXRMACHINE_PLAN_WARNING, 0, 0, warning.c_str(), nullptr, nullptr});
  }
  if (!line.starts_with(kChoiceWarning)) return;
  const auto unread = Split(line.substr(kChoiceWarning.size()), {kUnread});
  if (!unread.empty()) sink({VXRMACHINE_INF_UNREAD, 0, 0, unread[0].c_str(), unread[1].c_str(), nullptr});
}
