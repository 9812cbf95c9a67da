#include "tools/vxr/inf/inf_command.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "platform/inf/inf_file.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/inf/inf_text.h"

using Json = nlohmann::ordered_json;

namespace {

// Null after one line of complaint.
std::shared_ptr<machine::InfFile> OpenInf(const InfOptions &options) {
  std::string reason;
  std::shared_ptr<machine::InfFile> inf =
      ReadInfText(options.file, machine::MakeInfSettings(options.codePage, options.language), &reason);
  if (inf != nullptr && inf->sections.empty()) {
    reason = "holds no section";
    inf.reset();
  }
  if (inf == nullptr)
    PrintError(options.file + (reason.starts_with("line ") ? ": " : " ") + reason + "; name an INF file");
  return inf;
}

// The sections in file order, each line as a key (null without one) and its values, in UTF-8.
struct Line {
  std::optional<std::string> key;
  std::vector<std::string> values;
};

std::vector<Line> ShownLines(machine::InfFile *inf, const machine::InfSection &section, unsigned codePage) {
  std::vector<Line> lines;
  for (const machine::InfLine &line : section.lines) {
    const auto field = [&](std::uint32_t i) {
      return machine::AnsiToUtf8(machine::FieldText(inf, section, line, i), codePage);
    };
    Line shown;
    if (line.hasKey) shown.key = field(0);
    for (std::uint32_t i = 1; i <= line.valueCount; ++i) shown.values.push_back(field(i));
    lines.push_back(std::move(shown));
  }
  return lines;
}

std::string Name(const machine::InfFile &inf, const machine::InfSection &section, unsigned codePage) {
  return machine::AnsiToUtf8(machine::SectionName(inf, section), codePage);
}

// A value as it would have to be written: quoted when it holds what ends a value or a line.
std::string AsWritten(const std::string &value) {
  const bool plain = !value.empty() && value.find_first_of(",;=\"") == std::string::npos && value.front() != ' ' &&
                     value.back() != ' ';
  if (plain) return value;
  std::string quoted = "\"";
  for (const char c : value) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

void PrintText(machine::InfFile *inf, unsigned codePage) {
  for (std::uint32_t i = 0; i < inf->sections.size(); ++i) {
    const machine::InfSection &section = machine::ParsedSection(inf, i);
    if (i != 0) PrintLine("");
    PrintLine("[" + Name(*inf, section, codePage) + "]", Style::kBold);
    for (const Line &line : ShownLines(inf, section, codePage)) {
      std::string row = line.key ? AsWritten(*line.key) + " = " : "";
      for (std::size_t v = 0; v < line.values.size(); ++v) row += (v == 0 ? "" : ", ") + AsWritten(line.values[v]);
      PrintLine(row);
    }
  }
}

void PrintJson(machine::InfFile *inf, unsigned codePage) {
  Json sections = Json::array();
  for (std::uint32_t i = 0; i < inf->sections.size(); ++i) {
    const machine::InfSection &section = machine::ParsedSection(inf, i);
    Json lines = Json::array();
    for (Line &line : ShownLines(inf, section, codePage)) {
      lines.push_back({{"key", line.key ? Json(*line.key) : Json()}, {"fields", std::move(line.values)}});
    }
    sections.push_back({{"name", Name(*inf, section, codePage)}, {"lines", std::move(lines)}});
  }
  const Json document = {{"sections", std::move(sections)}};
  PrintDocument(document, 1);
}

}  // namespace

int InfCommand(const InfOptions &options) {
  if (!machine::KnownCodePage(options.codePage)) {
    PrintError("code page " + std::to_string(options.codePage) + " is not known; use one such as 1252 or 932");
    return kExitUsage;
  }
  machine::SetCodePage(options.codePage);
  const std::shared_ptr<machine::InfFile> inf = OpenInf(options);
  if (inf == nullptr) return 1;
  if (options.json) {
    PrintJson(inf.get(), options.codePage);
  } else {
    PrintText(inf.get(), options.codePage);
  }
  return 0;
}
