# One program with everything but the C library linked in, for a rescue system that has nothing else:
#   cmake --preset portable && cmake --build --preset portable && cpack --preset portable

target_link_options(vxr PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections)

install(TARGETS vxr RUNTIME DESTINATION .)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION .)
install(DIRECTORY docs DESTINATION . FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION . PATTERN .git* EXCLUDE PATTERN rebuild EXCLUDE)
set(CMAKE_INSTALL_MANDIR man)
set(CMAKE_INSTALL_DATADIR share)
include(cmake/help.cmake)

# The licences of what is linked in, as Debian records them, and the texts that those refer to.
string(REGEX MATCH "^[0-9]+" gcc ${CMAKE_CXX_COMPILER_VERSION})
foreach(linked hivex=libhivex-dev tomlplusplus=libtomlplusplus-dev nettle=nettle-dev json=nlohmann-json3-dev
        cli11=libcli11-dev gcc-runtime=gcc-${gcc}-base)
  string(REPLACE "=" ";" linked ${linked})
  list(GET linked 0 name)
  list(GET linked 1 package)
  install(FILES /usr/share/doc/${package}/copyright DESTINATION licences RENAME ${name}.txt)
endforeach()
foreach(text GPL-2 GPL-3 LGPL-2 LGPL-2.1 LGPL-3)
  install(FILES /usr/share/common-licenses/${text} DESTINATION licences RENAME ${text}.txt)
endforeach()

set(CPACK_PACKAGE_NAME vxr)
set(CPACK_PACKAGE_VENDOR Varnelt)
string(TOLOWER ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR} CPACK_SYSTEM_NAME)
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)

enable_testing()
add_test(NAME portable COMMAND ${PROJECT_SOURCE_DIR}/tests/portable_test.sh ${PROJECT_SOURCE_DIR})
set_tests_properties(portable PROPERTIES LABELS machine TIMEOUT 600 SKIP_RETURN_CODE 77)
