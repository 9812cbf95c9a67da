// The platform's command-line tools as child processes.
#pragma once

#include "platform/platform.h"

// What belongs on both sides of a path that is one argument of a command line: a quotation mark, or nothing when it
// holds only letters, digits and \ : . _ - ~ $. At any other character some program splits, joins, begins a switch.
const char *QuoteFor(const char *path);

// Runs a command line without a console window and waits for its end, however long. TRUE when it exits with code 0.
// `*exitCode` gets the exit code, or the system error code when it cannot start; 0xFFFFFFFF for a null command and when
// the exit code cannot be read. Failures are logged.
BOOL VXREng_ExecCommand(const char *command, DWORD *exitCode);
