// What the log says of a choice of drivers by Windows' rules, as the events that it tells on Windows.
#pragma once

#include <string_view>

#include "tools/vxr/base/log_events.h"

// A line of the log, without its end. What the log does not say (descriptions, the changes that are planned) stays out.
void TellChoiceLine(std::string_view line, EventSink sink);
