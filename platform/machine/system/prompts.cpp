// Questions to the user: the terminal answers when there is one, else the machine file's [prompts] in turn. Where
// nobody answers, a question for a directory is cancelled and the cancelling confirmed, so that a run without a user
// ends.
#include "platform/machine/system/prompts.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/text/code_page.h"

namespace {

// The answers to one kind of question.
struct Answers {
  const char *otherwise;           // where nobody answers
  std::size_t taken = 0;           // of the machine file's
  std::vector<std::string> given;  // since the machine was opened, whoever gave them
  std::size_t replayed = 0;        // of those, in a rehearsal
  std::size_t takenBefore = 0;     // the rehearsal
};

Answers directories{"cancel", 0, {}, 0, 0}, confirmations{"yes", 0, {}, 0, 0};

// Both must be terminals: a user who redirected one of them is not there to answer.
bool HasTerminal() { return isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0; }

void Show(const std::string &ansi) {
  std::fputs(machine::AnsiToUtf8(ansi).c_str(), stderr);
  std::fflush(stderr);
}

// One line from the terminal without its end, in the ANSI code page; nothing at the end of the input. It is read byte
// by byte so that what follows the line stays for others.
std::optional<std::string> ReadLine() {
  std::string line;
  char byte = 0;
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    if (byte == '\n') break;
    line += byte;
  }
  const std::size_t begin = line.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  return machine::Utf8ToAnsi(line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin));
}

// The terminal's user is not asked in a rehearsal: one who answered already need not do so twice.
std::string Ask(Answers *answers, const std::vector<std::string> &described, const std::string &question) {
  const bool rehearsing = machine::Rehearsing();
  if (rehearsing && answers->replayed < answers->given.size()) return answers->given[answers->replayed++];
  std::string answer = answers->otherwise;
  if (!HasTerminal()) {
    if (answers->taken < described.size()) answer = described[answers->taken++];
  } else if (!rehearsing) {
    Show(question);
    answer = ReadLine().value_or(answer);
  }
  if (!rehearsing) answers->given.push_back(answer);
  return answer;
}

bool HoldsFile(std::string directory, const char *file) {
  if (directory.empty()) return false;
  if (directory.back() != '\\') directory += '\\';
  WIN32_FIND_DATAA data;
  HANDLE search = platform::FindFirstFileA((directory + file).c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return false;
  platform::FindClose(search);
  return true;
}

UINT GivePath(const std::string &path, char *buffer, DWORD size, DWORD *requiredSize) {
  if (requiredSize != nullptr) *requiredSize = static_cast<DWORD>(path.size() + 1);
  if (buffer == nullptr) return DPROMPT_SUCCESS;
  if (path.size() >= size) return machine::FailWith(ERROR_INSUFFICIENT_BUFFER, DPROMPT_BUFFERTOOSMALL);
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return DPROMPT_SUCCESS;
}

}  // namespace

namespace machine {

void ClosePrompts() {
  for (Answers *answers : {&directories, &confirmations}) *answers = {answers->otherwise, 0, {}, 0, 0};
}

void BeginPromptRehearsal() {
  for (Answers *answers : {&directories, &confirmations}) {
    answers->replayed = 0;
    answers->takenBefore = answers->taken;
  }
}

void EndPromptRehearsal() {
  for (Answers *answers : {&directories, &confirmations}) answers->taken = answers->takenBefore;
}

}  // namespace machine

namespace platform {

// Only the Yes/No question is used.
int MessageBoxA(HWND, const char *text, const char *caption, UINT type) {
  VXR_FAULT(0, ERROR_NOT_ENOUGH_MEMORY);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return machine::FailWith(ERROR_NOT_READY, 0);
  if (text == nullptr || caption == nullptr || type != MB_YESNO) return machine::FailWith(ERROR_INVALID_PARAMETER, 0);
  const std::string question = std::string(caption) + "\n" + text + " [y/n]: ";
  for (;;) {
    const std::string answer = Ask(&confirmations, machine->prompts.cancelSearch, question);
    const char letter = static_cast<char>((answer.empty() ? 0 : answer[0]) | 0x20);
    if (letter == 'y') return IDYES;
    if (letter == 'n') return IDNO;
  }
}

UINT SetupPromptForDiskA(HWND, const char *title, const char *, const char *pathToSource, const char *fileSought,
                         const char *, DWORD style, char *pathBuffer, DWORD pathBufferSize, DWORD *requiredSize) {
  VXR_FAULT(DPROMPT_OUTOFMEMORY, ERROR_NOT_ENOUGH_MEMORY);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return machine::FailWith(ERROR_NOT_READY, DPROMPT_CANCEL);
  if (fileSought == nullptr) return machine::FailWith(ERROR_INVALID_PARAMETER, DPROMPT_CANCEL);
  std::string path = pathToSource == nullptr ? "" : pathToSource;
  if ((style & IDF_CHECKFIRST) != 0 && HoldsFile(path, fileSought)) {
    return GivePath(path, pathBuffer, pathBufferSize, requiredSize);
  }
  for (;;) {
    const std::string question = std::string(title == nullptr ? "" : title) + ": " + path + " has no " + fileSought +
                                 ".\nType another directory of the machine, skip or cancel: ";
    const std::string answer = Ask(&directories, machine->prompts.driverDirectory, question);
    if (machine::CompareNoCase(answer, "cancel") == 0) return DPROMPT_CANCEL;
    if (machine::CompareNoCase(answer, "skip") == 0) return DPROMPT_SKIPFILE;
    if (HoldsFile(answer, fileSought)) return GivePath(answer, pathBuffer, pathBufferSize, requiredSize);
    path = answer;
  }
}

}  // namespace platform
