#include "tools/vxr/drivers/driver_report.h"

#include <nlohmann/json.hpp>

#include "platform/architecture.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"

using Json = nlohmann::ordered_json;

namespace {

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
          {"rank", Hexadecimal(row.rank)},
          {"date", OrNull(row.date)},
          {"version", row.version},
          {"service", OrNull(row.service)},
          {"refused", refused}};
}

// What Windows' rules go by means nothing where exact rules were tried.
void PrintRow(const DriverRow &row, bool exact) {
  const bool fits = row.reason.empty();
  const std::string indent(6, ' ');
  PrintLine("  " + row.inf, fits ? Style::kPlain : Style::kDim);
  if (!row.description.empty()) PrintLine(indent + row.description);
  std::string standing = row.id;
  if (!exact) standing += ", rank " + Hexadecimal(row.rank);
  if (!row.date.empty()) standing += ", " + row.date;
  if (!row.version.empty()) standing += ", version " + row.version;
  PrintLine(indent + standing);
  if (!fits) {
    PrintLine(indent + row.reason + ": " + row.reasonText, Style::kBad);
    return;
  }
  const std::string sections = exact ? "" : ", by [" + row.models + "] and [" + row.section + "]";
  PrintLine(indent + (row.service.empty() ? "needs no service" : "service " + row.service) + sections);
}

// The rows from `*next` on that can be installed, or cannot, `most` at the most.
void PrintRows(const char *title, const DriverList &list, bool fit, std::size_t most, bool exact, std::size_t *next) {
  for (std::size_t count = 0; count < most && *next < list.rows.size(); ++count, ++*next) {
    const DriverRow &row = list.rows[*next];
    if (row.reason.empty() != fit) return;
    if (count == 0) PrintTitle(title);
    PrintRow(row, exact);
  }
}

void PrintNone(const DriverQuery &query, const DriverList &list) {
  PrintLine("");
  if (list.files == 0 && list.below == 0) {
    PrintLine("No INF file was read.", Style::kBad);
  } else if (!list.rows.empty()) {
    PrintLine("No driver here can be installed for the device.", Style::kBad);
  } else {
    PrintLine("No INF file lists the device.", Style::kBad);
    if (query.withoutClass) PrintLine("Many list a PCI function with its class: give that too, such as 010400.");
  }
  if (list.below != 0) {
    PrintLine("Exact rules leave out the folders below (INF files there: " + std::to_string(list.below) +
              "): name the folder of a driver.");
  }
}

}  // namespace

void PrintDriversJson(const DriverQuery &query, const DriverList &list) {
  Json unread = Json::array(), candidates = Json::array();
  for (const UnreadRow &row : list.unread) unread.push_back({{"inf", row.inf}, {"text", row.text}});
  for (const DriverRow &row : list.rows) candidates.push_back(RowJson(row));
  const VXRDRV_TARGET &target = query.target;
  const Json document = {{"target",
                          {{"major", target.major},
                           {"minor", target.minor},
                           {"build", target.build},
                           {"architecture", ArchitectureName(target.architecture)},
                           {"product", target.product},
                           {"suite", target.suite}}},
                         {"files", list.files},
                         {"unreadable", std::move(unread)},
                         {"candidates", std::move(candidates)},
                         {"chosen", IsChosen(list) ? Json(0) : Json()}};
  PrintDocument(document);
}

void PrintDriversText(const DriverQuery &query, const DriverList &list) {
  const bool exact = query.options->rules == "exact";
  PrintLine(std::to_string(list.files) + (list.files == 1 ? " INF file for " : " INF files for ") +
                query.options->target + ", by " + (exact ? "exact rules" : "Windows' rules"),
            Style::kBold);
  std::size_t next = 0;
  PrintRows("Would be taken", list, true, 1, exact, &next);
  PrintRows("Would be taken without it, in this order", list, true, SIZE_MAX, exact, &next);
  PrintRows("Cannot be installed", list, false, SIZE_MAX, exact, &next);
  if (!list.unread.empty()) PrintTitle("Not read");
  for (const UnreadRow &row : list.unread) PrintLine("  " + row.inf + ": " + row.text);
  if (!IsChosen(list)) PrintNone(query, list);
}
