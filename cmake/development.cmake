# What hosts are built with, beside the headers: the link, pkg-config's file, CMake's package, the examples.

include(CMakePackageConfigHelpers)
set(config ${CMAKE_INSTALL_LIBDIR}/cmake/vxrcore)
install(TARGETS vxrcore EXPORT vxrcore
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vxrcore NAMESPACE vxrcore:: FILE vxrcoreConfig.cmake DESTINATION ${config} COMPONENT development)
# What SONAME 0 promises holds for every version that begins with 0.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxrcoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/vxrcore.pc.in vxrcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vxrcoreConfigVersion.cmake DESTINATION ${config} COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/vxrcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(DIRECTORY examples/scsi-6.1-x64 DESTINATION ${VXR_EXAMPLES_DIR} COMPONENT development
        PATTERN .gitignore EXCLUDE)
