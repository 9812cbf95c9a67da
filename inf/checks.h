// What the functions of this folder ask of what they are given: arguments that are there, texts that fit.
#pragma once

#include <initializer_list>

#include "log/log.h"
#include "vxr/device.h"

// Whether the handle is a valid one; logs "ERROR:<caller>:hInf is INVALID_HANDLE_VALUE\n" when it is not.
bool HandleGiven(HINF hInf, const Caller &trace = {__builtin_FUNCTION()});
// Whether there is a driver, with a device, with decorations; logs the first that is missing.
bool DecorationsGiven(const VXR_DRIVER *pVXRDriver, const Caller &trace = {__builtin_FUNCTION()});
// Writes the parts, one after the other, into `buffer` of `size` bytes; a null part counts as empty. False after
// logging one line that names `purpose`, with an empty text in the buffer, when they do not fit: what a text that was
// cut names is something else. The parts must not lie in the buffer.
bool PutText(char *buffer, SIZE_T size, const char *purpose, std::initializer_list<const char *> parts,
             const Caller &trace = {__builtin_FUNCTION()});
