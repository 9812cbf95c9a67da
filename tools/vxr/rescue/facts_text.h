// What the commands of a rescue system found, for people and for programs.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/vxr/rescue/rescue_facts.h"

void PrintSystem(const rescue::RestoredSystem &system);
nlohmann::ordered_json SystemJson(const rescue::RestoredSystem &system);
// The restored system, and the disks: those it is to start from, or `all`.
void PrintFacts(const RescueFacts &facts, bool all);
nlohmann::ordered_json ObstaclesJson(const RescueFacts &facts);
nlohmann::ordered_json FactsJson(const RescueFacts &facts);
