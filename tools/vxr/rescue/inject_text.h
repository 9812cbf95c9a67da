// What an injection did, or would do, for people and for programs.
#pragma once

#include "tools/vxr/rescue/injection.h"
#include "tools/vxr/rescue/rescue_options.h"

void PrintInjectText(const RescueOptions &options, const RescueFacts &facts, const Injection &injection);
void PrintInjectJson(const RescueOptions &options, const RescueFacts &facts, const Injection &injection);
