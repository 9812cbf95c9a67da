// On Windows the library has no observer. Its status lines and the log's lines, whose texts are fixed, are turned here
// into the events that a described machine reports; nothing else in the program knows those texts.
#pragma once

#include <string_view>

#include "vxrcore/events.h"

using EventSink = void (*)(const VXRMachine_Event &event);

// A status line, in the system's code page: itself, and what it tells of files and devices.
void TellStatusLine(std::string_view line, EventSink sink);
// A line of the log; one that tells of no event is passed over.
void TellLogLine(std::string_view line, EventSink sink);
