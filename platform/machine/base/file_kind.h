// What a host file is that is no regular one, for people.
#pragma once

#include <filesystem>

namespace machine {

// "is a directory", in the form that follows a file's name.
inline const char *FileKind(std::filesystem::file_type type) {
  using Type = std::filesystem::file_type;
  switch (type) {
    case Type::regular:
      return "is a file";
    case Type::directory:
      return "is a directory";
    case Type::fifo:
      return "is a FIFO";
    case Type::socket:
      return "is a socket";
    case Type::character:
      return "is a character device";
    case Type::block:
      return "is a block device";
    case Type::not_found:
      return "is missing";
    default:
      return "is no regular file";
  }
}

}  // namespace machine
