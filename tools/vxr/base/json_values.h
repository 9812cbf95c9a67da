// Values of the JSON documents that commands print.
#pragma once

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
