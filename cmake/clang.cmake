# Clang, which compiles with sanitizers in half of GCC's time. Not a preset's variables: a build folder that has another
# compiler would lose all of them when they change.
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
