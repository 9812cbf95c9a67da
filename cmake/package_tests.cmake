# Tests of what people install: `ctest -L package`.

function(vxr_package_test name timeout)
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/${name}.sh ${ARGN})
  set_tests_properties(${name} PROPERTIES LABELS package TIMEOUT ${timeout} SKIP_RETURN_CODE 77)
endfunction()

# With sanitizers the library exports theirs too, and the others test no code of that build.
if(VXR_SANITIZE)
  return()
endif()
vxr_package_test(help_test 120 $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR})
vxr_package_test(pages_test 300 ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
vxr_package_test(abi_test 60 $<TARGET_FILE:vxrcore> ${PROJECT_SOURCE_DIR})
# What packagers make. Their presets configure this very folder, and find all built; another they would build for nothing.
if(NOT PROJECT_BINARY_DIR STREQUAL ${PROJECT_SOURCE_DIR}/build/native)
  return()
endif()
vxr_package_test(debian_packages_test 1800 ${PROJECT_SOURCE_DIR})
vxr_package_test(debian_lint_test 120 ${PROJECT_SOURCE_DIR})
vxr_package_test(debian_install_test 120 ${PROJECT_SOURCE_DIR})
vxr_package_test(portable_test 600 ${PROJECT_SOURCE_DIR})
# First, since others wait for it.
set_tests_properties(debian_packages_test PROPERTIES FIXTURES_SETUP debian_packages COST 1000)
set_tests_properties(debian_lint_test debian_install_test PROPERTIES FIXTURES_REQUIRED debian_packages)
set_tests_properties(debian_packages_test portable_test PROPERTIES RESOURCE_LOCK native_build)
