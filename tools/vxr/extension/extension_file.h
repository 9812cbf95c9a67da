// Extension files for people and programs: reading one, and everything in it as a JSON document.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "vxrcore/bmext.h"

// Reads a whole file, with one read. False when it cannot be read, has another size, or its magic or version is not
// that of an extension file; `*problem` then says what is wrong and what to do, without the file's name, and `*image`
// is of no use.
bool ReadExtensionFile(const std::string &path, VXR_EXTIMAGE *image, std::string *problem);

// Everything that the image holds, entries beyond a count aside: each number as it is, beside it in words where it has
// a meaning; texts in UTF-8, from `codePage`, which must be a known one; answers of the platform and reserved bytes in
// hexadecimal. `path` becomes the document's "file".
nlohmann::ordered_json ExtensionDocument(const std::string &path, const VXR_EXTIMAGE &image, unsigned codePage);

// The document as text, indented.
std::string DocumentText(const nlohmann::ordered_json &document);

// --- Fields, whatever they hold ------------------------------------------------------------------------------------

// Up to its terminator or the field's end, in UTF-8.
std::string FieldText(const char *field, std::size_t size, unsigned codePage);
template <std::size_t kSize>
std::string FieldText(const char (&field)[kSize], unsigned codePage) {
  return FieldText(field, kSize, codePage);
}

// How many entries of a table a count leaves to read.
std::uint32_t UsableVolumes(const VXR_VOLUMES &volumes);
std::uint32_t UsableDisks(const VXR_VOLDISKS &disks);

// "boot.ini and the running system", one of the two, or nothing: what made the file number this volume.
std::string HeldText(const VXR_VOLUMES &volumes, std::uint32_t index);

// Whether a map file named the volume in the backup.
bool HasBackupName(const VXR_VOLUME &volume, unsigned codePage);

// Whether a driver record holds anything but zeroes.
bool IsRecorded(const VXR_DEVDRV &driver);

// "{4D36E967-E325-11CE-BFC1-08002BE10318}".
std::string GuidText(const VXR_GUID &guid);

// Upper-case, two digits a byte.
std::string HexText(const void *bytes, std::size_t size);

// "0x0000ABCD": `digits` of them, at least.
std::string HexNumber(std::uint64_t number, int digits);

// "2026-11-19T12:00:00Z", with seven digits of a second when it is not a whole one. Empty for 0, which stands for no
// time, and for what is no time.
std::string TimeText(VXR_LE64 time);

// The device name of a platform's answer: its length (bytes, 16 bits), then UTF-16LE. Cut where the answer ends.
std::string DeviceNameText(const VXR_VOLUME &volume);
