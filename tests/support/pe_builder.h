// Portable executables with a version resource, put together by hand, so that tests have them in every shape.
#pragma once

#include <string>
#include <vector>

// A node of the version tree: a value of as many bytes, counted as `valueLength` says, then the children, each aligned.
std::string VersionNode(const std::u16string &key, unsigned type, const std::string &value, size_t valueLength,
                        const std::vector<std::string> &children = {});
// A text of a string table as resource compilers write it: terminated, counted in units.
std::string TextNode(const std::u16string &key, const std::u16string &text);
// UTF-16LE without terminator.
std::string Utf16Bytes(const std::u16string &text);
// VS_VERSION_INFO with a fixed part and these children.
std::string VersionTree(const std::vector<std::string> &children);
// VarFileInfo with Translation; each entry is a language and a code page.
std::string TranslationNode(const std::vector<std::pair<unsigned, unsigned>> &entries);

struct ImageShape {
  bool pe32 = false;       // a 32-bit image
  bool dataApart = false;  // the data in a section of its own, before that of the directories
  bool version = true;     // has the version type
};

// An image of two sections. The version type stands among a named type, icons and a manifest, and of its two languages
// the second one leads out of the image.
std::string BuildImage(const std::string &resource, const ImageShape &shape = {});
