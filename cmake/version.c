/* A shared library needs one source of its own; all else comes from the folders' archives. */
const char vxrcoreBuild[] __attribute__((used)) = "vxrcore";
