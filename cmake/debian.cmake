# Debian packages: vxr, libvxrcore0 and libvxrcore-dev, with what Debian wants beside the files.
#   cmake --preset debian && cmake --build --preset debian && cpack --preset debian

set(VXR_DEBIAN_FILES ${PROJECT_SOURCE_DIR}/cmake/debian)
file(STRINGS ${VXR_DEBIAN_FILES}/changelog changes)
list(GET changes 0 newest)
if(NOT newest MATCHES "^vxrcore \\(${PROJECT_VERSION}-[0-9]+\\) ")
  message(FATAL_ERROR "cmake/debian/changelog: the first entry is not of version ${PROJECT_VERSION}; add one")
endif()

# What packages of hosts will depend on: the version that brought the symbols. One that comes later gets its own.
file(STRINGS ${PROJECT_SOURCE_DIR}/platform/machine/vxrcore.map symbols REGEX "^    VXR[A-Za-z]+_[A-Za-z]+;$")
list(TRANSFORM symbols REPLACE "^    (.*);$" " \\1@VXRCORE_0 0.1.0\n")
list(SORT symbols)
string(CONCAT symbols "libvxrcore.so.0 libvxrcore0 #MINVER#\n" "* Build-Depends-Package: libvxrcore-dev\n"
       " VXRCORE_0@VXRCORE_0 0.1.0\n" ${symbols})
file(WRITE ${PROJECT_BINARY_DIR}/debian/symbols "${symbols}")
set(extra symbols shlibs triggers)
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs "libvxrcore 0 libvxrcore0 (>= 0.1.0)\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")

find_program(VXR_GZIP gzip REQUIRED)
execute_process(COMMAND ${VXR_GZIP} -9nc ${VXR_DEBIAN_FILES}/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component program library development)
  string(TOUPPER ${component} COMPONENT)
  if(component STREQUAL program)
    set(package vxr)
  elseif(component STREQUAL library)
    set(package libvxrcore0)
  else()
    set(package libvxrcore-dev)
  endif()
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz ${VXR_DEBIAN_FILES}/copyright
          DESTINATION share/doc/${package} COMPONENT ${component})
  if(EXISTS ${VXR_DEBIAN_FILES}/${package}.overrides)
    install(FILES ${VXR_DEBIAN_FILES}/${package}.overrides DESTINATION share/lintian/overrides RENAME ${package}
            COMPONENT ${component})
  endif()
endforeach()
install(FILES ${VXR_DEBIAN_FILES}/libvxrcore-dev.README DESTINATION share/doc/libvxrcore-dev RENAME README.Debian
        COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL program library development)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Varnelt <vxrcore@varnelt.example>")
set(CPACK_DEBIAN_PACKAGE_SOURCE vxrcore)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The first line is the summary, in the place of the one that all would share.
unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY)
set(about "vxrcore puts the disk drivers that a machine needs into a Windows system that
was restored onto it, offline: driver files, services and the registry's
critical devices.\n")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "inject disk drivers into a restored Windows offline
${about}\nThis package holds the command line and its documents.")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "offline driver injection for restored Windows - library
${about}\nThis package holds the shared library.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "offline driver injection for restored Windows - development files
${about}\nThis package holds headers, files for pkg-config and CMake, and examples.
The pages for authors of hosts are in the package vxr.")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "libvxrcore0 (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_MULTIARCH same)
list(TRANSFORM extra PREPEND ${PROJECT_BINARY_DIR}/debian/)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${extra})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvxrcore0 (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS vxr)
