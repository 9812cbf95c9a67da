// A sysfs tree, the kernel's own or a captured one: its nodes, links and small files.
//
// A path names a node below the tree's root, such as "block/sda". Links are followed inside the tree alone: one with an
// absolute target, or that leads out of the tree or round in a circle, leads nowhere. Nothing in the tree is trusted:
// what cannot be read, or is too long, counts as missing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rescue {

// The node's own path, with no link in it; empty when there is no such node.
std::string ResolveNode(const std::filesystem::path &sysfs, const std::string &path);
// Where a link leads, as it is written, whether or not there is anything; empty when the node is no link.
std::string LinkText(const std::filesystem::path &sysfs, const std::string &path);
// The first 4 KiB of a file, as they are.
std::string ReadBytes(const std::filesystem::path &sysfs, const std::string &path);
// The first line of a file without the blanks around it, fit to be shown.
std::string ReadText(const std::filesystem::path &sysfs, const std::string &path);
// A line that is one number: decimal, or hexadecimal behind 0x.
std::optional<std::uint64_t> ReadNumber(const std::filesystem::path &sysfs, const std::string &path);
// The names in a node that consist of visible ASCII, in natural order.
std::vector<std::string> ListNames(const std::filesystem::path &sysfs, const std::string &path);

// sdb comes before sdaa, nvme2n1 before nvme10n1.
bool InNaturalOrder(std::string_view a, std::string_view b);

// What is no visible ASCII nor a blank becomes "?", so that a text cannot steer a terminal or break a line.
std::string Showable(std::string text);

// The parts of a path, without empty ones, "." and "..".
std::vector<std::string> PathParts(std::string_view path);

// Whether a name has a form such as "nvme#n#", in which # stands for digits.
bool HasForm(std::string_view name, std::string_view form);

// Takes digits and the character that must follow them off the text; `end` 0: nothing may follow.
bool TakeNumber(std::string_view *text, int base, char end, std::uint64_t *number);

}  // namespace rescue
