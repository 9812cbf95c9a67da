#include "tools/vxr/drivers/drivers_command.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/text/code_page.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/drivers/driver_list.h"
#include "tools/vxr/drivers/pci_ids.h"
#include "tools/vxr/drivers/target_text.h"

using Json = nlohmann::ordered_json;

namespace {

constexpr char kHelp[] = "; see vxr drivers --help";

bool IsClass(const std::string &text) {
  const auto isHexadecimal = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  return (text.size() == 4 || text.size() == 6) && std::all_of(text.begin(), text.end(), isHexadecimal);
}

// A device by its ids, or by the numbers of its PCI function, which stand for ids of both kinds.
bool ReadIds(const DriversOptions &options, DriverQuery *query) {
  for (std::size_t i = 0; i < options.ids.size(); ++i) {
    std::string id = options.ids[i];
    PciFunction function;
    if (IsPciFunction(id) && i + 1 < options.ids.size() && IsClass(options.ids[i + 1])) id += " " + options.ids[++i];
    if (ParsePciFunction(id, &function)) {
      for (std::string &one : HardwareIds(function)) query->hardwareIds.push_back(std::move(one));
      for (std::string &one : CompatibleIds(function)) query->compatibleIds.push_back(std::move(one));
    } else if (id.find('\\') != std::string::npos || id.front() == '*' || id.find(':') == std::string::npos) {
      query->hardwareIds.push_back(id);
    } else {
      PrintError("--id " + id +
                 ": is neither an id such as PCI\\VEN_8086&DEV_2822 nor a PCI function such as "
                 "8086:2822:1028:04F7:05 010400" +
                 kHelp);
      return false;
    }
  }
  query->compatibleIds.insert(query->compatibleIds.end(), options.compatibleIds.begin(), options.compatibleIds.end());
  return true;
}

bool CheckOptions(const DriversOptions &options, DriverQuery *query) {
  std::string problem;
  const auto empty = [](const std::string &text) { return text.empty(); };
  if (!ParseTarget(options.target, &query->target, &problem)) {
    PrintError("--target " + options.target + ": " + problem + kHelp);
    return false;
  }
  query->target.language = options.language;
  if (std::any_of(options.ids.begin(), options.ids.end(), empty) ||
      std::any_of(options.compatibleIds.begin(), options.compatibleIds.end(), empty)) {
    PrintError(std::string("an id is empty") + kHelp);
    return false;
  }
  if (!machine::KnownCodePage(options.codePage)) {
    PrintError("code page " + std::to_string(options.codePage) + " is not known; use one such as 1252 or 932");
    return false;
  }
  if (!kDescribedMachines && options.rules == "exact") {
    PrintError("--rules exact can only be tried where machines are described, not on Windows; use windows");
    return false;
  }
  return ReadIds(options, query);
}

std::string RankText(std::uint32_t rank) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", rank);
  return text;
}

Json TextOrNull(const std::string &text) { return text.empty() ? Json() : Json(text); }

Json RowJson(const DriverRow &row) {
  Json refused;
  if (!row.reason.empty()) refused = {{"reason", row.reason}, {"text", row.reasonText}};
  return {{"inf", row.inf},
          {"models", row.models},
          {"section", row.section},
          {"description", row.description},
          {"manufacturer", row.manufacturer},
          {"provider", row.provider},
          {"id", row.id},
          {"rank", RankText(row.rank)},
          {"date", TextOrNull(row.date)},
          {"version", row.version},
          {"service", TextOrNull(row.service)},
          {"refused", refused}};
}

void PrintJson(const DriverQuery &query, const DriverList &list, bool chosen) {
  Json unread = Json::array(), candidates = Json::array();
  for (const UnreadRow &row : list.unread) unread.push_back({{"inf", row.inf}, {"text", row.text}});
  for (const DriverRow &row : list.rows) candidates.push_back(RowJson(row));
  const VXRDRV_TARGET &target = query.target;
  const Json document = {{"target",
                          {{"major", target.major},
                           {"minor", target.minor},
                           {"build", target.build},
                           {"architecture", TargetArchitecture(target.architecture)},
                           {"product", target.product},
                           {"suite", target.suite}}},
                         {"files", list.files},
                         {"unreadable", std::move(unread)},
                         {"candidates", std::move(candidates)},
                         {"chosen", chosen ? Json(0) : Json()}};
  std::printf("%s\n", document.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

void PrintRow(const DriverRow &row, bool chosen) {
  PrintLine(std::string(chosen ? "* " : "  ") + row.inf, chosen               ? Style::kGood
                                                         : row.reason.empty() ? Style::kPlain
                                                                              : Style::kDim);
  PrintLine("      " + row.description + "  [" + row.section + "]");
  PrintLine("      " + row.id + "  rank " + RankText(row.rank) + (row.date.empty() ? "" : "  " + row.date) +
            (row.version.empty() ? "" : "  version " + row.version));
  if (row.reason.empty()) {
    PrintLine("      " + (row.service.empty() ? "needs no service" : "service " + row.service));
  } else {
    PrintLine("      " + row.reason + ": " + row.reasonText, Style::kBad);
  }
}

void PrintText(const DriversOptions &options, const DriverList &list, bool chosen) {
  PrintLine(std::to_string(list.files) + (list.files == 1 ? " INF file" : " INF files") + " for " + options.target +
                ", by " + (options.rules == "exact" ? "exact rules" : "Windows' rules"),
            Style::kBold);
  for (const DriverRow &row : list.rows) PrintRow(row, chosen && &row == &list.rows.front());
  for (const UnreadRow &row : list.unread) PrintLine("  " + row.inf + ": not read: " + row.text, Style::kBad);
  if (chosen) return;
  PrintLine(list.rows.empty() ? "No INF file lists the device." : "No driver here can be installed for the device.",
            Style::kBad);
}

}  // namespace

int DriversCommand(const DriversOptions &options) {
  DriverQuery query;
  query.options = &options;
  DriverList list;
  if (!CheckOptions(options, &query) || !FindDrivers(query, &list)) return kExitUsage;
  const bool chosen = !list.rows.empty() && list.rows.front().reason.empty();
  if (options.json) {
    PrintJson(query, list, chosen);
  } else {
    PrintText(options, list, chosen);
  }
  return FinishOutput() && chosen ? 0 : 1;
}
