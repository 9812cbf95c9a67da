// The extension file's format by its byte offsets. Shares no declaration with the library, so that a mistake in the
// library's records cannot hide in what tests expect, nor in the files that tests and examples feed it.
//
// Keys are those of the tables in extension_format.cpp: the file's as they are, those of a volume after "vol0." to
// "vol3.", those of its disks after "vol0.disk0." or "vol0.disk1.", those of a driver after a further "disk.", "ctrl."
// or "bus.", and of these the service's and the files' after "svc.", "img." or "inf.", as in
// vol0.disk0.ctrl.svc.name=atapi. Numbers are decimal or 0x hexadecimal, negative ones as 0xFFFFFFFF.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct ExtensionField {
  enum Kind {
    kNumber,
    kText,
    kGuid,    // 4D36E967-E325-11CE-BFC1-08002BE10318
    kAnswer,  // hexadecimal bytes, stored behind their count in 16 bits; the sum of both stands at `count`
    kName     // the same of a text, as UTF-16
  };
  std::size_t offset, size;  // in the file, in bytes
  Kind kind;
  std::size_t count;
};

// False when there is no such key.
bool FindExtensionField(const std::string &key, ExtensionField *field);

void PutNumber(std::string *image, std::size_t offset, std::size_t size, std::uint64_t value);

// What every file holds whatever the machine: magic hot, version 1, sizes and capacities, no boot or system volume.
std::string BlankExtension();

// Sets a field by "key=value" or "magic=cold". False for an unknown key, or a value that does not fit.
bool PutExtensionField(std::string *image, const std::string &argument);
