// Numbers in texts such as ids.
#pragma once

#include <cstdio>
#include <string>

namespace rescue {

// As printf; of at most 79 characters.
template <typename... Numbers>
std::string Format(const char *format, Numbers... numbers) {
  char text[80];
  std::snprintf(text, sizeof text, format, numbers...);
  return text;
}

}  // namespace rescue
