#include "rescue/sysfs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <deque>
#include <tuple>

#include "platform/machine/base/descriptor.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kMostLinks = 40;  // in one path, as many as the kernel follows
constexpr std::size_t kLongestPath = 4096, kLongestName = 64, kLongestFile = 4096;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsVisible(char c) { return c > ' ' && c <= '~'; }

void PutInFront(std::string_view path, std::deque<std::string> *parts) {
  for (std::size_t end = path.size(); end != std::string_view::npos && end > 0;) {
    const std::size_t slash = path.rfind('/', end - 1);
    const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
    parts->emplace_front(path.substr(begin, end - begin));
    end = slash;
  }
}

// The digits, or what is not digits, at the front of a name.
std::string_view FirstRun(std::string_view name) {
  std::size_t end = 0;
  while (end < name.size() && IsDigit(name[end]) == IsDigit(name[0])) ++end;
  return name.substr(0, end);
}

// Letters count on like digits do behind the two that name the driver.
auto OrderOfRun(std::string_view run) {
  const std::string_view digits = run.substr(std::min(run.find_first_not_of('0'), run.size()));
  return std::tuple(IsDigit(run[0]) ? std::string_view() : run.substr(0, 2), digits.size(), digits, run);
}

std::string WithoutBlanks(const std::string &text) {
  const std::size_t begin = text.find_first_not_of(" \t"), end = text.find_last_not_of(" \t");
  return begin == std::string::npos ? std::string() : text.substr(begin, end - begin + 1);
}

}  // namespace

std::string ResolveNode(const fs::path &sysfs, const std::string &path) {
  std::deque<std::string> parts;
  PutInFront(path, &parts);
  std::string node;
  for (unsigned links = 0; !parts.empty();) {
    const std::string part = std::move(parts.front());
    parts.pop_front();
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (node.empty()) return {};
      node.resize(node.find('/') == std::string::npos ? 0 : node.rfind('/'));
      continue;
    }
    const std::string next = node.empty() ? part : node + '/' + part;
    if (next.size() > kLongestPath) return {};
    std::error_code failure;
    const fs::file_type type = fs::symlink_status(sysfs / next, failure).type();
    if (type == fs::file_type::symlink) {
      const fs::path target = fs::read_symlink(sysfs / next, failure);
      if (failure || target.is_absolute() || ++links > kMostLinks) return {};
      PutInFront(target.native(), &parts);
    } else if (type == fs::file_type::none || type == fs::file_type::not_found) {
      return {};
    } else {
      node = next;
    }
  }
  return node;
}

std::string LinkText(const fs::path &sysfs, const std::string &path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  const std::string folder = ResolveNode(sysfs, path.substr(0, slash));
  if (folder.empty()) return {};
  std::error_code failure;
  const fs::path target = fs::read_symlink(sysfs / folder / path.substr(slash + 1), failure);
  return failure ? std::string() : target.native();
}

std::string ReadBytes(const fs::path &sysfs, const std::string &path) {
  const std::string node = ResolveNode(sysfs, path);
  std::error_code failure;
  // Looked at first: to open a device can do things.
  if (node.empty() || !fs::is_regular_file(sysfs / node, failure)) return {};
  const machine::Descriptor file(open((sysfs / node).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  std::string bytes(kLongestFile, '\0');
  const ssize_t size = file ? read(file.fd, bytes.data(), bytes.size()) : -1;
  bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return bytes;
}

std::string ReadText(const fs::path &sysfs, const std::string &path) {
  std::string text = ReadBytes(sysfs, path);
  text.resize(std::min(text.find_first_of(std::string_view("\n\0", 2)), text.size()));
  return Showable(WithoutBlanks(text));
}

std::optional<std::uint64_t> ReadNumber(const fs::path &sysfs, const std::string &path) {
  const std::string text = ReadText(sysfs, path);
  const bool hexadecimal = text.starts_with("0x");
  std::string_view digits = std::string_view(text).substr(hexadecimal ? 2 : 0);
  std::uint64_t number = 0;
  return TakeNumber(&digits, hexadecimal ? 16 : 10, 0, &number) ? std::optional(number) : std::nullopt;
}

std::vector<std::string> ListNames(const fs::path &sysfs, const std::string &path) {
  std::vector<std::string> names;
  const std::string node = ResolveNode(sysfs, path);
  if (node.empty()) return names;
  std::error_code failure;
  for (fs::directory_iterator at(sysfs / node, failure), end; !failure && at != end; at.increment(failure)) {
    std::string name = at->path().filename().native();
    if (name.size() <= kLongestName && std::all_of(name.begin(), name.end(), IsVisible)) names.push_back(name);
  }
  std::sort(names.begin(), names.end(), InNaturalOrder);
  return names;
}

bool InNaturalOrder(std::string_view a, std::string_view b) {
  while (!a.empty() && !b.empty()) {
    const std::string_view runA = FirstRun(a), runB = FirstRun(b);
    if (runA != runB) return OrderOfRun(runA) < OrderOfRun(runB);
    a.remove_prefix(runA.size());
    b.remove_prefix(runB.size());
  }
  return a.size() < b.size();
}

std::string Showable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c != ' ' && !IsVisible(c); }, '?');
  return text;
}

std::vector<std::string> PathParts(std::string_view path) {
  std::deque<std::string> parts;
  PutInFront(path, &parts);
  std::erase_if(parts, [](const std::string &part) { return part.empty() || part == "." || part == ".."; });
  return {parts.begin(), parts.end()};
}

bool HasForm(std::string_view name, std::string_view form) {
  for (const char c : form) {
    const bool digit = !name.empty() && IsDigit(name[0]);
    if (name.empty() || (c == '#' ? !digit : name[0] != c)) return false;
    name.remove_prefix(c == '#' ? FirstRun(name).size() : 1);
  }
  return name.empty();
}

bool TakeNumber(std::string_view *text, int base, char end, std::uint64_t *number) {
  const char *const behind = text->data() + text->size();
  const auto [at, failure] = std::from_chars(text->data(), behind, *number, base);
  if (failure != std::errc() || (end == 0 ? at != behind : at == behind || *at != end)) return false;
  text->remove_prefix(static_cast<std::size_t>(at - text->data()) + (end == 0 ? 0 : 1));
  return true;
}

}  // namespace rescue
