// What a command needs of the Windows that it runs on.
#pragma once

// Gives the program's arguments in UTF-8, as the commands take them, and lets the console show UTF-8. The arguments
// live as long as the program; they stay as they are when memory runs out.
void UseUtf8(int *argc, char ***argv);
