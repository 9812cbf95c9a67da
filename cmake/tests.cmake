# Unit tests stand beside their sources. They are few programs, since each compiles the same templates anew; the label
# says which need a described machine.

add_library(vxr_test_support STATIC
  tests/support/choice_job.cpp tests/support/driver_job.cpp tests/support/extension_format.cpp
  tests/support/fault_loop.cpp tests/support/guarded_memory.cpp tests/support/hive_builder.cpp
  tests/support/hive_log_builder.cpp tests/support/hive_reader.cpp tests/support/hive_structure.cpp
  tests/support/pe_builder.cpp tests/support/protected_machine.cpp tests/support/restore_job.cpp
  tests/support/test_machine.cpp tests/support/test_machine_files.cpp)
target_link_libraries(vxr_test_support PUBLIC vxr_everything GTest::gtest GTest::gmock GTest::gtest_main)
vxr_of_tests(vxr_test_support)

include(GoogleTest)
function(vxr_test name label)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE vxr_test_support)
  vxr_of_tests(${name})
  gtest_discover_tests(${name} TEST_PREFIX ${name}. PROPERTIES LABELS ${label} TIMEOUT 300 DISCOVERY_TIMEOUT 60)
endfunction()

# The logic, folder by folder.
vxr_test(logic_test machine
  bmext/load_test.cpp bmext/query_test.cpp bmext/target_os_test.cpp
  device/facts_test.cpp device/scan/disk_scan_test.cpp device/scan/installed_driver_test.cpp
  engine/base/files_test.cpp engine/base/status_test.cpp engine/base/strings_test.cpp engine/boot_volume_test.cpp
  engine/lifecycle_test.cpp engine/paths/path_catalogue_test.cpp
  inf/critical_device_test.cpp inf/field_reader_test.cpp inf/install_section_test.cpp
  inf/search/driver_search_test.cpp
  log/dump_test.cpp log/log_test.cpp
  registry/boot_record_test.cpp registry/edits_test.cpp registry/mount/hive_test.cpp registry/values_test.cpp
  restore/settings_test.cpp volume/volume_test.cpp)
# Windows' own choice of drivers.
vxr_test(package_test machine
  package/choose/candidates_test.cpp package/choose/choice_test.cpp package/choose/own_drivers_test.cpp
  package/plan/plan_test.cpp package/read/installation_test.cpp)

# The described machine, and what the platform's calls give, here and on Windows alike.
vxr_test(machine_test machine
  platform/machine/description/description_test.cpp
  platform/machine/files/copy_test.cpp platform/machine/files/disks_test.cpp platform/machine/files/files_test.cpp
  platform/machine/files/paths_test.cpp platform/machine/files/search_test.cpp
  platform/machine/files/settings_file_test.cpp platform/machine/files/volumes_test.cpp
  platform/machine/hive/hive_recovery_test.cpp platform/machine/hive/hive_test.cpp
  platform/machine/hive/hivex_iconv_test.cpp
  platform/machine/host/replace_file_test.cpp platform/machine/machine_test.cpp
  platform/machine/registry/registry_test.cpp
  platform/machine/setup/devices_test.cpp platform/machine/setup/drivers_test.cpp
  platform/machine/setup/inf_calls_test.cpp
  platform/machine/system/facts_test.cpp platform/machine/system/processes_test.cpp
  platform/machine/system/windows_test.cpp platform/machine/version/version_resource_test.cpp
  platform/release_test.cpp platform/text/code_page_test.cpp platform/text/format_test.cpp
  tests/c_headers.c)
set_source_files_properties(tests/c_headers.c PROPERTIES SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
# Beside the C library's own functions, to be compared with them.
add_library(own_iconv OBJECT platform/machine/hive/hivex_iconv.cpp)
target_compile_definitions(own_iconv PRIVATE iconv_open=own_iconv_open iconv=own_iconv iconv_close=own_iconv_close)
target_link_libraries(machine_test PRIVATE own_iconv)
set(VXR_CONTRACT_TESTS tests/platform_contract_files_test.cpp tests/platform_contract_settings_test.cpp
    tests/platform_contract_inf_test.cpp tests/platform_differences_test.cpp tests/log_bytes_test.cpp)
vxr_test(platform_contract_test machine ${VXR_CONTRACT_TESTS})

# Whole jobs: the run, by Windows' own choice of drivers too; the recording of a machine; what is taken back; and each
# with every platform call failing.
vxr_test(job_test machine
  rescue/undo_test.cpp tests/choice_run_test.cpp tests/create_test.cpp tests/fault_loop_test.cpp
  tests/restore_run_test.cpp tools/vxr/base/choice_lines.cpp)
target_link_libraries(job_test PRIVATE vxr_rescue)

# Readers of files that need no machine, also those of the command line and the rescue system.
vxr_test(reader_test unit
  platform/inf/inf_file_test.cpp platform/machine/setup/decoration_test.cpp
  rescue/disk_chain_test.cpp rescue/restored_system_test.cpp
  tools/vxr/drivers/drivers_test.cpp tools/vxr/extension/extension_view_test.cpp tools/vxr/run/run_record_test.cpp)
target_link_libraries(reader_test PRIVATE vxr_commands)

# A run that is killed or has no room at any call that changes something. Not with sanitizers, whose library would have
# to come before the preloaded one.
if(NOT VXR_SANITIZE)
  add_library(kill_point MODULE tests/support/kill_point.cpp)
  set_target_properties(kill_point PROPERTIES CXX_VISIBILITY_PRESET default)
  add_executable(keep_for_undo tests/support/keep_for_undo.cpp)
  target_link_libraries(keep_for_undo PRIVATE vxr_everything vxr_rescue)
  vxr_test(crash_test machine tests/crash_test.cpp)
  target_compile_definitions(crash_test PRIVATE VXR_KILL_POINT="$<TARGET_FILE:kill_point>"
                             VXR_PROGRAM="$<TARGET_FILE:vxr>"
                             VXR_KEEP_FOR_UNDO="$<TARGET_FILE:keep_for_undo>")
  add_dependencies(crash_test vxr kill_point keep_for_undo)
endif()

# Hive files and extension files for examples; the second shares nothing with the library.
add_executable(make_hive tests/support/make_hive.cpp)
target_link_libraries(make_hive PRIVATE vxr_test_support)
vxr_of_tests(make_hive)
add_executable(make_extension tests/support/make_extension.cpp tests/support/extension_format.cpp)

# The program from outside: its commands, injections in a rescue system, what pages show, boot sectors of disks that
# other tools made.
vxr_program(faulty_vxr "library with fault points linked in")
target_link_libraries(faulty_vxr PRIVATE vxr_everything)
set_target_properties(faulty_vxr PROPERTIES VXR_FAULTS ON)
function(vxr_script name label)
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/${name}_test.sh ${ARGN})
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 300)
endfunction()
vxr_script(command_line machine $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR}/examples
           $<TARGET_FILE:make_extension> $<TARGET_FILE:make_hive> $<TARGET_FILE:faulty_vxr>)
vxr_script(inject machine $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR}/examples $<TARGET_FILE:make_hive>
           ${PROJECT_SOURCE_DIR}/examples/unpack-sysfs $<TARGET_FILE:faulty_vxr>)
vxr_script(docs machine $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR})
vxr_script(fix_boot machine $<TARGET_FILE:vxr>)
set_tests_properties(fix_boot PROPERTIES SKIP_RETURN_CODE 77)

# The example for authors of hosts, in C, against the shared library as they have it.
add_executable(list_volumes examples/extension-file/list_volumes.c)
target_link_libraries(list_volumes PRIVATE vxrcore)
vxr_script(extension_example unit $<TARGET_FILE:list_volumes> $<TARGET_FILE:make_extension>)

# The shared library from outside: what it exports, that it can be unloaded.
add_executable(library_test tests/library_test.cpp)
target_link_libraries(library_test PRIVATE GTest::gtest_main)
target_compile_definitions(library_test PRIVATE VXR_LIBRARY="$<TARGET_FILE:vxrcore>"
                           VXR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
add_dependencies(library_test vxrcore)
add_test(NAME library_test COMMAND library_test)
set_tests_properties(library_test PROPERTIES LABELS unit TIMEOUT 60)

# What is installed: pages, completion, the interface, packages.
include(cmake/package_tests.cmake)
