// vxr: runs the library on a described machine or, on Windows, on this one; and shows the files it reads.

#include "tools/vxr/command_line.h"

int main(int argc, char **argv) { return CommandLine(argc, argv, "vxr " VXR_VERSION " (" VXR_BUILD ")"); }
