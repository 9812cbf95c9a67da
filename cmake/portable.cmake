# One program with everything but the C library linked in, for a rescue system that has nothing else:
#   cmake --preset portable && cmake --build --preset portable && cpack --preset portable
# It is made of the archives that the Debian packages are made of, and installed as the component `portable` only.

# Objects of the program itself: of an archive the linker would take iconv after it had the C library's.
vxr_program(vxr_portable "library linked in"
  ${PROJECT_SOURCE_DIR}/platform/machine/hive/hivex_iconv.cpp
  ${PROJECT_SOURCE_DIR}/platform/machine/description/toml_library.cpp)
set_target_properties(vxr_portable PROPERTIES VXR_LINKS_ARCHIVES ON)
target_link_libraries(vxr_portable PRIVATE vxr_everything)
target_link_options(vxr_portable PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections -s)

# The kind, the files, where they go, and what else install() takes behind that.
function(vxr_portable_install kind files destination)
  install(${kind} ${files} DESTINATION ${destination} COMPONENT portable EXCLUDE_FROM_ALL ${ARGN})
endfunction()
vxr_portable_install(PROGRAMS $<TARGET_FILE:vxr_portable> . RENAME vxr)
vxr_portable_install(FILES "${VXR_DOCUMENTS}" .)
vxr_portable_install(DIRECTORY docs . FILES_MATCHING PATTERN *.md)
vxr_portable_install(DIRECTORY examples . ${VXR_EXAMPLES_RULES})

# The licences of what is linked in, as Debian records them, and the texts that those refer to.
string(REGEX MATCH "^[0-9]+" gcc ${CMAKE_CXX_COMPILER_VERSION})
foreach(linked hivex=libhivex-dev tomlplusplus=libtomlplusplus-dev nettle=nettle-dev json=nlohmann-json3-dev
        cli11=libcli11-dev gcc-runtime=gcc-${gcc}-base)
  string(REPLACE "=" ";" linked ${linked})
  list(GET linked 0 name)
  list(GET linked 1 package)
  vxr_portable_install(FILES /usr/share/doc/${package}/copyright licences RENAME ${name}.txt)
endforeach()
foreach(text GPL-2 GPL-3 LGPL-2 LGPL-2.1 LGPL-3)
  vxr_portable_install(FILES /usr/share/common-licenses/${text} licences RENAME ${text}.txt)
endforeach()
vxr_install_help(man share COMPONENT portable EXCLUDE_FROM_ALL)

set(CPACK_PACKAGE_NAME vxr)
string(TOLOWER ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR} CPACK_SYSTEM_NAME)
set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};vxr;portable;/")
set(CPACK_GENERATOR TGZ)
