# What is delivered runs as root on files that nobody vouches for: should one of them get past a check, the program ends.

include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("#include <cstdio>\nint main() { return 0; }" VXR_KNOWS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
set(VXR_FORTIFY 2)
if(VXR_KNOWS_FORTIFY_3)
  set(VXR_FORTIFY 3)
endif()
add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${VXR_FORTIFY} -fstack-protector-strong)
add_link_options(-Wl,-z,relro,-z,now)
