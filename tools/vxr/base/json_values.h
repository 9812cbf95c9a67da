// Values of the JSON documents that commands print.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

// What is absent is null, so that a program need not tell "" from "nothing".
inline nlohmann::ordered_json OrNull(const std::string &text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}
template <typename Value>
nlohmann::ordered_json OrNull(const std::optional<Value> &value) {
  return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

// What went wrong, the last and all, and the exit status: the end of a document.
inline void AddEnd(const std::vector<std::string> &errors, int exitStatus, nlohmann::ordered_json *document) {
  (*document)["error"] = errors.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(errors.back());
  (*document)["errors"] = errors;
  (*document)["exit_status"] = exitStatus;
}

// The document on standard output. A byte that is not UTF-8 is shown as U+FFFD.
inline void PrintDocument(const nlohmann::ordered_json &document, int indent = 2) {
  std::printf("%s\n", document.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}
