// What an install section would mean for a device, and why it cannot be taken.
#pragma once

#include <string>

#include "package/choose/candidates.h"

namespace package {

struct Judgement {
  std::string section;  // taken; as written where there is none
  std::string service;  // of the function driver; empty: the device needs none
  std::string version;  // as written
  DWORD featureScore = kDefaultFeatureScore;
  DWORD64 date = 0;
  Refusal refusal = Refusal::kNone;
  std::string refusalText;
};

// Judges the install section that a model line names so.
Judgement JudgeSection(const InfSource &inf, const std::string &written, const DeviceIds &device, const Target &target,
                       const IncludePlaces &places);

}  // namespace package
