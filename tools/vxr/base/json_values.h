// Values of the JSON documents that commands print.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// What is absent is null, so that a program need not tell "" from "nothing".
inline nlohmann::ordered_json OrNull(const std::string &text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}
template <typename Value>
nlohmann::ordered_json OrNull(const std::optional<Value> &value) {
  return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

// The document on standard output. A byte that is not UTF-8 is shown as U+FFFD.
inline void PrintDocument(const nlohmann::ordered_json &document, int indent = 2) {
  std::printf("%s\n", document.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}
