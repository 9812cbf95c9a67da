// The commands of vxr, with their options.
#pragma once

// What --version says; of the program, since one of them has the library linked in and the other has not.
extern const char kVersion[];

// Runs the command that the arguments of the process name; returns the exit status.
int CommandLine(int argc, char **argv);
