// Values of the JSON documents that commands print.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// What is absent is null, so that a program need not tell "" from "nothing".
inline nlohmann::ordered_json OrNull(const std::string &text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}
inline nlohmann::ordered_json OrNull(const std::optional<std::uint32_t> &number) {
  return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json();
}
