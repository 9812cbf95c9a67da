// Counts platform calls against the fault plan.
#include "platform/machine/base/fault.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

machine::FaultPlan plan;
std::string planName;  // keeps the name of a plan that was given as text
unsigned calls = 0;
unsigned met = 0;

std::vector<std::string_view> Split(std::string_view text) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t colon = text.find(':');
    parts.push_back(text.substr(0, colon));
    if (colon == std::string_view::npos) return parts;
    text.remove_prefix(colon + 1);
  }
}

template <typename Number>
bool ParseNumber(std::string_view text, Number *number) {
  const bool hexadecimal = text.starts_with("0x");
  if (hexadecimal) text.remove_prefix(2);
  const auto result = std::from_chars(text.data(), text.data() + text.size(), *number, hexadecimal ? 16 : 10);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

}  // namespace

namespace machine {

void SetFaultPlan(const FaultPlan &newPlan) {
  plan = newPlan;
  calls = met = 0;
}

bool SetFaultPlanFromText(std::string_view text) {
  const std::vector<std::string_view> parts = Split(text);
  FaultPlan parsed;
  std::size_t next = 2;
  bool good = parts.size() >= 2 && !parts[0].empty() && ParseNumber(parts[1], &parsed.nth) && parsed.nth >= 1;
  if (good && next < parts.size() && (parts[next] == "once" || parts[next] == "on")) {
    parsed.onwards = parts[next++] == "on";
  }
  if (good && next < parts.size()) good = ParseNumber(parts[next++], &parsed.error);
  if (!good || next != parts.size()) return false;
  planName = parts[0];
  parsed.call = planName.c_str();
  SetFaultPlan(parsed);
  return true;
}

unsigned FaultCalls() { return calls; }

unsigned FaultsMet() { return met; }

bool FaultPoint(const char *call, DWORD fallback) {
  if (plan.call == nullptr || (std::strcmp(plan.call, "*") != 0 && std::strcmp(plan.call, call) != 0)) return false;
  calls++;
  if (plan.counted != nullptr) plan.counted();
  if (plan.onwards ? calls < plan.nth : calls != plan.nth) return false;
  met++;
  platform::SetLastError(plan.error != 0 ? plan.error : fallback);
  return true;
}

Status TakeFaultsOfEnvironment() {
  const char *text = std::getenv("VXR_FAULTS");
  if (text == nullptr || *text == '\0' || SetFaultPlanFromText(text)) return {};
  return Status::Refused(std::string("VXR_FAULTS: \"") + text + "\" is not of the form NAME:N[:once|on][:ERROR]");
}

}  // namespace machine
