// Why the narrow reading refuses an INF file, in words.
#pragma once

#include <cstdint>
#include <string>

// Of VXRMACHINE_REFUSED_..., in the form that follows the file's name: "its install section [X] is not there, or
// empty". `detail` is the event's. Any other number is that of a file that was given up for a cause that nothing tells.
std::string RefusalText(std::uint32_t reason, const std::string &detail);
// The word for programs: "section_missing", "other".
std::string RefusalWord(std::uint32_t reason);
