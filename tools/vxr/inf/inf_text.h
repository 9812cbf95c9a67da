// INF files of the host, read without a machine.
#pragma once

#include <memory>
#include <string>

#include "platform/inf/inf_file.h"

// Null, with the reason for people, when the host's file cannot be read or is not INF text.
std::shared_ptr<machine::InfFile> ReadInfText(const std::string &name,
                                              std::shared_ptr<const machine::InfSettings> settings,
                                              std::string *reason);
