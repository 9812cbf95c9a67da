# Manual pages and the completion of shells, made of what the built vxr says of itself.

find_program(VXR_LOWDOWN lowdown)
if(NOT VXR_LOWDOWN)
  message(FATAL_ERROR "lowdown is missing, which makes manual pages; run scripts/bootstrap")
endif()
set(VXR_HELP_DIR ${PROJECT_BINARY_DIR}/help)
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/debian/changelog date REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^.*>  " "" date "${date}")
file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/help/*)
add_custom_command(OUTPUT ${VXR_HELP_DIR}/made
  COMMAND ${PROJECT_SOURCE_DIR}/tools/help/make_pages.sh $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR} ${VXR_HELP_DIR}
          ${PROJECT_VERSION} "${date}"
  COMMAND ${CMAKE_COMMAND} -E touch ${VXR_HELP_DIR}/made
  DEPENDS vxr ${sources} ${PROJECT_SOURCE_DIR}/docs/machine.md VERBATIM)
add_custom_target(help_pages ALL DEPENDS ${VXR_HELP_DIR}/made)

# Where they belong; further arguments are those of install().
function(vxr_install_help man data)
  set(completion ${VXR_HELP_DIR}/completion)
  install(DIRECTORY ${VXR_HELP_DIR}/man1 ${VXR_HELP_DIR}/man5 DESTINATION ${man} ${ARGN})
  install(FILES ${completion}/vxr.bash DESTINATION ${data}/bash-completion/completions RENAME vxr ${ARGN})
  install(FILES ${completion}/vxr.zsh DESTINATION ${data}/zsh/vendor-completions RENAME _vxr ${ARGN})
  install(FILES ${completion}/vxr.fish DESTINATION ${data}/fish/vendor_completions.d ${ARGN})
endfunction()
vxr_install_help(${CMAKE_INSTALL_MANDIR} ${CMAKE_INSTALL_DATADIR} COMPONENT program)
