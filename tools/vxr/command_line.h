// The commands of vxr, with their options.
#pragma once

// Runs the command that the arguments of the process name; returns the exit status. `version` is what --version says:
// each program tells its own library.
int CommandLine(int argc, char **argv, const char *version);
