# Tests of the Windows build; they run on Windows or, when it is built elsewhere, under Wine. There each finds a registry
# and drives of its own in the build folder.

set(CMAKE_POLICY_DEFAULT_CMP0077 NEW) # so that the next line counts
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
# What is tested are the archives: neither this nor the tests are worth optimising.
foreach(target gtest gtest_main gmock)
  target_compile_options(${target} PRIVATE -O0)
endforeach()

# The tests' drives X: and D: are directories of this folder.
set(VXR_TEST_FOLDER ${PROJECT_BINARY_DIR}/drives)
file(MAKE_DIRECTORY ${VXR_TEST_FOLDER}/ram ${VXR_TEST_FOLDER}/restored)
set(VXR_TEST_ENVIRONMENT "VXR_TEST_FOLDER=${VXR_TEST_FOLDER}")
set(VXR_WINE)
if(CMAKE_CROSSCOMPILING)
  find_program(VXR_WINE_PROGRAM NAMES wine64 wine HINTS /usr/lib/wine REQUIRED)
  find_program(VXR_WINESERVER NAMES wineserver HINTS /usr/lib/wine REQUIRED)
  set(VXR_WINE ${VXR_WINE_PROGRAM})
list(APPEND VXR_TEST_ENVIRONMENT "WINEPREFIX=${PROJECT_BINARY_DIR}/wine" WINEDEBUG=-all
  WINEDLLOVERRIDES=mscoree,mshtml= LC_ALL=C.UTF-8)

  # Wine takes its code page from the locale's name. The building system need not know Japan: it gets its own locale under
  # that name.
  file(COPY /usr/lib/locale/C.utf8/ DESTINATION ${PROJECT_BINARY_DIR}/locale/ja_JP.UTF-8)
  set(VXR_JAPANESE_ENVIRONMENT "${VXR_TEST_ENVIRONMENT}" LOCPATH=${PROJECT_BINARY_DIR}/locale LC_ALL=ja_JP.UTF-8)

  # Ended when no more tests are to run.
  add_test(NAME wine_start COMMAND ${PROJECT_SOURCE_DIR}/tests/support/start_wine.sh ${VXR_WINE} ${VXR_TEST_FOLDER})
  add_test(NAME wine_end COMMAND sh -c "'${VXR_WINESERVER}' -k || true")
set_tests_properties(wine_start wine_end PROPERTIES ENVIRONMENT "${VXR_TEST_ENVIRONMENT}" LABELS windows TIMEOUT 120)
  set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine)
  set_tests_properties(wine_end PROPERTIES FIXTURES_CLEANUP wine)
endif()

# A test of the Windows build: the program, its arguments.
function(vxr_windows_run name)
  add_test(NAME ${name} COMMAND ${VXR_WINE} ${ARGN})
  # One at a time: they share the registry and the drives.
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "${VXR_TEST_ENVIRONMENT}" TIMEOUT 300 LABELS windows
                       RESOURCE_LOCK wine FIXTURES_REQUIRED wine)
endfunction()

# What unit tests of the Windows build share.
add_library(vxr_test_support STATIC tests/support/test_machine_win32.cpp tests/support/test_machine_files.cpp
            tests/support/guarded_memory.cpp tests/support/pe_builder.cpp
            tests/support/extension_format.cpp)
file(CREATE_LINK /usr/include/toml++ ${PROJECT_BINARY_DIR}/headers/toml++ SYMBOLIC)
target_include_directories(vxr_test_support SYSTEM PRIVATE ${PROJECT_BINARY_DIR}/headers)
target_link_libraries(vxr_test_support PUBLIC vxr_everything GTest::gtest GTest::gmock GTest::gtest_main PRIVATE
    shlwapi)
vxr_of_tests(vxr_test_support)

# A program of unit tests and its run.
function(vxr_windows_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE vxr_test_support vxr_commands)
  vxr_of_tests(${name})
  vxr_windows_run(${name} $<TARGET_FILE:${name}>)
endfunction()

# Every unit test that needs no described machine, in one program, which links faster than many. It bears the name that
# tests of the log expect.
vxr_windows_test(unit_tests
  bmext/load_test.cpp bmext/query_test.cpp bmext/target_os_test.cpp engine/base/files_test.cpp
  engine/base/status_test.cpp engine/base/strings_test.cpp inf/field_reader_test.cpp log/dump_test.cpp log/log_test.cpp
  engine/paths/path_catalogue_test.cpp platform/text/format_test.cpp platform/release_test.cpp
  platform/inf/inf_file_test.cpp restore/settings_test.cpp tools/vxr/extension/extension_view_test.cpp
  tools/vxr/run/run_record_test.cpp volume/volume_test.cpp)
set_target_properties(unit_tests PROPERTIES OUTPUT_NAME agent)
if(CMAKE_CROSSCOMPILING)
  # Once more with Japanese texts.
  vxr_windows_run(unit_tests_japanese $<TARGET_FILE:unit_tests>)
  set_tests_properties(unit_tests PROPERTIES FAIL_REGULAR_EXPRESSION "code page 1252: skipped")
  set_tests_properties(unit_tests_japanese PROPERTIES ENVIRONMENT "${VXR_JAPANESE_ENVIRONMENT}"
                       FAIL_REGULAR_EXPRESSION "code page 932: skipped")
endif()

# What the platform's calls give, here and on the described machine alike.
set(VXR_CONTRACT_TESTS tests/platform_contract_files_test.cpp tests/platform_contract_settings_test.cpp
    tests/platform_contract_inf_test.cpp tests/platform_differences_test.cpp
    tests/log_bytes_test.cpp)
vxr_windows_test(platform_contract_test ${VXR_CONTRACT_TESTS})

# The example for authors of hosts, and what the library and its package are from outside. Their tests are scripts.
add_executable(host examples/host/host.c)
add_dependencies(host vxrcore)
if(CMAKE_CROSSCOMPILING)
  set(VXR_NATIVE_PROGRAM ${PROJECT_SOURCE_DIR}/build/native/tools/vxr CACHE FILEPATH
      "A vxr of the building system, to read what the Windows library wrote")
  function(vxr_windows_script name)
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/${name}.sh ${ARGN})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${VXR_TEST_ENVIRONMENT}" TIMEOUT 600 LABELS windows)
  endfunction()
  vxr_windows_script(windows_host_test ${PROJECT_BINARY_DIR} ${VXR_WINE} ${VXR_NATIVE_PROGRAM})
  vxr_windows_script(windows_command_line_test ${PROJECT_BINARY_DIR} ${VXR_WINE} ${VXR_NATIVE_PROGRAM}
                     ${PROJECT_SOURCE_DIR})
  vxr_windows_script(windows_library_test ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
  vxr_windows_script(windows_rebuild_test ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${CMAKE_COMMAND})
set_tests_properties(windows_host_test windows_command_line_test PROPERTIES RESOURCE_LOCK wine FIXTURES_REQUIRED wine)
add_test(NAME package COMMAND ${PROJECT_SOURCE_DIR}/tests/package_test.sh ${PROJECT_SOURCE_DIR})
  set_tests_properties(package PROPERTIES LABELS windows TIMEOUT 60)
endif()
