#include "tools/vxr/extension/query_command.h"

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/extension/extension_file.h"
#include "tools/vxr/extension/query_names.h"
#include "vxrcore/vxrcore.h"

namespace {

struct Question {
  std::uint32_t queryClass = 0, code = 0;
  std::uint32_t inValue = 0;
  std::int32_t disk = 0;
  AnswerForm form = AnswerForm::kBytes;

  std::uint32_t Item() const { return code & ~kSelectorBits; }
  bool OfVolume() const { return queryClass == VXREQ_Volume && Item() > VXREQV_BootVolInd; }
  bool OfDisk() const { return queryClass == VXREQ_Volume && Item() >= VXREQV_DiskNumber; }
  bool ByLetter() const { return queryClass == VXREQ_Volume && code == VXREQV_VolIndex; }
};

bool Refuse(const std::string &message) {
  PrintError(message);
  return false;
}

// "C", "C:" or "C:\".
bool IsLetter(const std::string &text) { return text.size() == 1 || text.substr(1) == ":" || text.substr(1) == ":\\"; }

std::uint32_t Selector(const std::string &driver) {
  if (machine::SameUtf8(driver, "bus")) return VXREQV_BusEDriver;
  return machine::SameUtf8(driver, "controller") ? VXREQV_CtrlDriver : VXREQV_DiskDriver;
}

// What `--driver` and `--letter` add to the question. False, after one line, when they do not fit it.
bool AddChoices(const QueryOptions &options, const char *item, Question *question) {
  if (!options.driver.empty() && !question->OfDisk()) {
    return Refuse(std::string("--driver: ") + item + " is not of a driver; leave it out");
  }
  if (!options.driver.empty() && (question->code & kSelectorBits) != 0) {
    return Refuse("--driver: " + options.item + " says whose driver already; leave it out");
  }
  if (question->OfDisk() && (question->code & kSelectorBits) == 0) question->code |= Selector(options.driver);
  if (options.letter.empty()) {
    return !question->ByLetter() || Refuse(std::string(item) + " needs a drive letter: --letter C");
  }
  if (!question->ByLetter()) return Refuse(std::string("--letter: ") + item + " has none; leave it out");
  if (!IsLetter(options.letter)) return Refuse("--letter: " + options.letter + " is not a drive letter such as C");
  question->inValue = static_cast<unsigned char>(options.letter[0]);
  return true;
}

// False, after one line, when the options name no question.
bool MakeQuestion(const QueryOptions &options, Question *question) {
  if (!machine::KnownCodePage(options.codePage)) {
    return Refuse("code page " + std::to_string(options.codePage) + " is not known; use one such as 1252 or 932");
  }
  const ClassName *queryClass = FindClass(options.queryClass);
  if (queryClass == nullptr) return Refuse("no class " + options.queryClass + "; there are " + ClassList());
  const ItemName *item = FindItem(*queryClass, options.item, &question->code);
  if (item == nullptr) {
    return Refuse(std::string("class ") + ShortName(queryClass->name) + " has no item " + options.item +
                  "; there are " + ItemList(*queryClass));
  }
  question->queryClass = queryClass->code;
  question->form = item->form;
  question->inValue = options.volume;
  question->disk = options.disk;
  return AddChoices(options, ShortName(item->name), question);
}

// Asks for the size, then for the answer itself.
bool Ask(const VXR_EXTIMAGE &image, const Question &question, std::vector<std::uint8_t> *answer) {
  std::uint32_t size = 0;
  const auto ask = [&](std::uint8_t *out) {
    return VXRExt_QueryData(question.queryClass, question.code, out, &size, &question.disk, question.inValue, &image);
  };
  answer->clear();
  if (ask(nullptr)) return true;  // an empty one
  if (size == 0) return false;
  answer->resize(size);
  return ask(answer->data()) != 0;
}

// A count in the file, capped at what its table holds.
std::uint32_t Count(const VXR_EXTIMAGE &image, std::uint32_t code, std::uint32_t volume, std::uint32_t most) {
  Question question;
  question.queryClass = VXREQ_Volume;
  question.code = code;
  question.inValue = volume;
  std::vector<std::uint8_t> answer;
  if (!Ask(image, question, &answer) || answer.size() != sizeof(VXR_LE32)) return 0;
  const VXR_LE32 count = {{answer[0], answer[1], answer[2], answer[3]}};
  return VxrGet32(count) < most ? VxrGet32(count) : most;
}

std::string Missing(const std::string &what, std::int64_t number, const std::string &where, std::uint32_t count) {
  return what + " " + std::to_string(number) + " does not exist: " + where + " has " +
         (count == 0 ? "none" : std::to_string(count)) + (count == 0 ? "" : ", numbered from 0");
}

// Why the library gives no answer.
std::string Reason(const VXR_EXTIMAGE &image, const Question &question) {
  const std::uint32_t volumes = Count(image, VXREQV_VolCount, 0, VXR_MAX_VOLUMES);
  if (question.ByLetter()) {
    return std::string("no volume was at drive letter ") + static_cast<char>(question.inValue) +
           "; give it as it was recorded, as a rule in upper case";
  }
  if (question.OfVolume() && question.inValue >= volumes) {
    return Missing("volume", question.inValue, "the file", volumes);
  }
  if (question.OfDisk()) {
    const std::uint32_t disks = Count(image, VXREQV_DiskCount, question.inValue, VXR_MAX_VOLUME_DISKS);
    if (question.disk < 0 || static_cast<std::uint32_t>(question.disk) >= disks) {
      return Missing("disk", question.disk, "volume " + std::to_string(question.inValue), disks);
    }
  }
  return "the library gives no answer to code " + HexNumber(question.code, 8) + "; ask for an item by its name";
}

}  // namespace

int QueryCommand(const QueryOptions &options) {
  Question question;
  if (!MakeQuestion(options, &question)) return kExitUsage;
  VXR_EXTIMAGE image;
  std::string problem;
  if (!ReadExtensionFile(options.file, &image, &problem)) {
    PrintError(options.file + " " + problem);
    return 1;
  }
  std::vector<std::uint8_t> answer;
  if (!Ask(image, question, &answer)) {
    PrintError(options.file + ": " + Reason(image, question));
    return 1;
  }
  for (const std::string &line : AnswerLines(question.form, answer, options.codePage)) PrintLine(line);
  return 0;
}
