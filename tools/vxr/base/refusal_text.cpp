#include "tools/vxr/base/refusal_text.h"

#include <iterator>

#include "vxrcore/machine.h"

namespace {

struct ReasonWords {
  const char *word;            // for programs
  const char *before, *after;  // around what the reason is about; nothing after: it is about nothing
};

// By VXRMACHINE_REFUSED_....
constexpr ReasonWords kReasons[] = {
    {"other", "was given up for a cause that only the log tells", ""},
    {"unreadable", "cannot be read as an INF file, or has no Signature of this style", ""},
    {"class", "is for devices of class ", "; the device is of another"},
    {"running_system", "lists the device in no section for the running system", ""},
    {"restored_system", "lists the device in no section for the restored system", ""},
    {"section_missing", "its install section [", "] is not there, or empty"},
    {"directive", "its install section has `", "`, which this reading refuses"},
    {"directive_empty", "`", "` in its install section has no value"},
    {"bare_line", "its install section [", "] ends in a line that is no directive"},
    {"copy_section_missing", "its list of files [", "] is not there, or empty"},
    {"file_name", "\"", "\" is not the name of one file"},
    {"file_missing", "", " is missing"},
    {"file_not_copied", "", " could not be copied"},
    {"service_missing", "its install section [", "] adds no service"},
    {"service_section_missing", "its service's section [", "] is not there, or empty"},
    {"service_value", "`", "` of its service could not be read or written"},
    {"not_registered", "its driver could not be named for the device; see the problems and the log", ""},
};

const ReasonWords &WordsOf(std::uint32_t reason) { return kReasons[reason < std::size(kReasons) ? reason : 0]; }

}  // namespace

std::string RefusalText(std::uint32_t reason, const std::string &detail) {
  if (reason == VXRMACHINE_REFUSED_NO_SECTION && detail.empty()) {
    return "its line for the device names no section to install";
  }
  if (reason == VXRMACHINE_REFUSED_SERVICE_VALUE && detail.empty()) {
    return "its service's section ends in a line that is no value";
  }
  const ReasonWords &words = WordsOf(reason);
  return words.before + (*words.after == '\0' ? "" : detail) + words.after;
}

std::string RefusalWord(std::uint32_t reason) { return WordsOf(reason).word; }
