# Unit tests stand beside their sources, one program a folder; the label says which need a described machine.

add_library(vxr_test_support STATIC tests/support/test_machine.cpp tests/support/test_machine_files.cpp
            tests/support/guarded_memory.cpp tests/support/extension_format.cpp tests/support/hive_builder.cpp tests/support/hive_log_builder.cpp)
target_compile_definitions(vxr_test_support PRIVATE VXR_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")
target_link_libraries(vxr_test_support PUBLIC vxr_everything GTest::gtest GTest::gmock GTest::gtest_main)

include(GoogleTest)
function(vxr_test name label)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE vxr_test_support)
  set_property(GLOBAL APPEND PROPERTY VXR_TEST_PROGRAMS ${name})
  gtest_discover_tests(${name} TEST_PREFIX ${name}. PROPERTIES LABELS ${label} TIMEOUT 300 DISCOVERY_TIMEOUT 60)
endfunction()

# The whole run.
target_sources(vxr_test_support PRIVATE tests/support/restore_job.cpp tests/support/fault_loop.cpp)
vxr_test(restore_run_test machine tests/restore_run_test.cpp tools/vxr/base/choice_lines.cpp)

# The run by Windows' own choice of drivers.
target_sources(vxr_test_support PRIVATE tests/support/choice_job.cpp)
vxr_test(choice_run_test machine tests/choice_run_test.cpp)

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

# Recording a machine.
target_sources(vxr_test_support PRIVATE tests/support/protected_machine.cpp)
vxr_test(create_test machine tests/create_test.cpp)

# Hive files for examples.
add_executable(make_hive tests/support/make_hive.cpp)
target_link_libraries(make_hive PRIVATE vxr_test_support)
vxr_test(fault_loop_test machine tests/fault_loop_test.cpp)

# Extension files for examples; shares nothing with the library.
add_executable(make_extension tests/support/make_extension.cpp tests/support/extension_format.cpp)

# Texts, files, settings, the path catalogue.
vxr_test(strings_test machine engine/base/strings_test.cpp)
vxr_test(engine_test machine engine/base/files_test.cpp engine/paths/path_catalogue_test.cpp restore/settings_test.cpp
         volume/volume_test.cpp)
vxr_test(bmext_test machine bmext/load_test.cpp bmext/query_test.cpp bmext/target_os_test.cpp)
vxr_test(scan_test machine device/scan/disk_scan_test.cpp)

# INF fields, the driver search, what a model line installs.
target_sources(vxr_test_support PRIVATE tests/support/driver_job.cpp)
vxr_test(field_reader_test machine inf/field_reader_test.cpp)

# Files, disks and processes of the described machine.
vxr_test(machine_files_test machine platform/machine/files/paths_test.cpp platform/machine/files/files_test.cpp
         platform/release_test.cpp platform/machine/files/disks_test.cpp platform/machine/files/volumes_test.cpp
platform/machine/files/copy_test.cpp platform/machine/host/replace_file_test.cpp
         platform/machine/files/search_test.cpp
         platform/machine/system/processes_test.cpp)

# The log and its dumps.
vxr_test(log_test machine log/log_test.cpp log/dump_test.cpp)

# Status lines and the life of the parameter block.
vxr_test(lifecycle_test machine engine/lifecycle_test.cpp engine/base/status_test.cpp)
vxr_test(driver_search_test machine inf/search/driver_search_test.cpp)
vxr_test(install_section_test machine inf/install_section_test.cpp inf/critical_device_test.cpp)

# Device records, properties, machine facts, class values.
vxr_test(device_test machine device/facts_test.cpp 
         device/scan/installed_driver_test.cpp)

# The described machine: texts, facts, windows and prompts, the machine file.
vxr_test(machine_base_test machine platform/text/code_page_test.cpp platform/machine/description/description_test.cpp
         platform/machine/system/facts_test.cpp platform/text/format_test.cpp platform/machine/machine_test.cpp
         platform/machine/system/windows_test.cpp tests/c_headers.c
         platform/machine/hive/hivex_iconv_test.cpp platform/machine/hive/hivex_iconv.cpp)
set_source_files_properties(tests/c_headers.c PROPERTIES SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
# Beside the C library's own functions, to be compared with them.
set_source_files_properties(platform/machine/hive/hivex_iconv.cpp PROPERTIES
  COMPILE_DEFINITIONS "iconv_open=own_iconv_open;iconv=own_iconv;iconv_close=own_iconv_close")

# The machine's registry and hive files; values and hive mounting of the logic.
target_sources(vxr_test_support PRIVATE tests/support/hive_reader.cpp tests/support/hive_structure.cpp)
vxr_test(machine_registry_test machine platform/machine/registry/registry_test.cpp platform/machine/hive/hive_test.cpp
         platform/machine/hive/hive_recovery_test.cpp)
vxr_test(registry_test machine registry/values_test.cpp registry/edits_test.cpp registry/boot_record_test.cpp
         registry/mount/hive_test.cpp)

# Windows' own choice of drivers.
vxr_test(package_test machine package/choose/candidates_test.cpp package/choose/choice_test.cpp
         package/choose/own_drivers_test.cpp package/plan/plan_test.cpp package/read/installation_test.cpp)

# The INF reader and what chooses among models sections.
vxr_test(inf_file_test unit platform/inf/inf_file_test.cpp platform/machine/setup/decoration_test.cpp)
vxr_test(setup_library_test machine platform/machine/setup/inf_calls_test.cpp platform/machine/setup/devices_test.cpp
         platform/machine/setup/drivers_test.cpp)

# The command line: what it makes of a run, and the program from outside.
vxr_test(command_line_unit_test unit tools/vxr/run/run_record_test.cpp tools/vxr/drivers/drivers_test.cpp)
target_link_libraries(command_line_unit_test PRIVATE vxr_commands)
add_test(NAME command_line COMMAND ${PROJECT_SOURCE_DIR}/tests/command_line_test.sh $<TARGET_FILE:vxr>
         ${PROJECT_SOURCE_DIR}/examples $<TARGET_FILE:make_extension> $<TARGET_FILE:make_hive>)
set_tests_properties(command_line PROPERTIES LABELS machine TIMEOUT 300)

# The disks of the machine that a rescue system runs on.
vxr_test(disk_chain_test unit rescue/disk_chain_test.cpp)
target_link_libraries(disk_chain_test PRIVATE vxr_rescue)
target_compile_definitions(disk_chain_test PRIVATE VXR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")

# Injections in a rescue system, from outside.
add_test(NAME inject COMMAND ${PROJECT_SOURCE_DIR}/tests/inject_test.sh $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR}/examples
         $<TARGET_FILE:make_hive> ${PROJECT_SOURCE_DIR}/scripts/unpack-sysfs)
set_tests_properties(inject PROPERTIES LABELS machine TIMEOUT 300)
add_test(NAME docs COMMAND ${PROJECT_SOURCE_DIR}/tests/docs_test.sh $<TARGET_FILE:vxr> ${PROJECT_SOURCE_DIR})
set_tests_properties(docs PROPERTIES LABELS machine TIMEOUT 300)

# Taking an injection back.
vxr_test(undo_test machine rescue/undo_test.cpp)
target_link_libraries(undo_test PRIVATE vxr_rescue)

# The boot-sector repair: on small images, what the command line says of it, and on disks that other tools made.
vxr_test(boot_volume_test machine engine/boot_volume_test.cpp)
add_test(NAME fix_boot COMMAND ${PROJECT_SOURCE_DIR}/tests/fix_boot_test.sh $<TARGET_FILE:vxr>)
set_tests_properties(fix_boot PROPERTIES LABELS machine TIMEOUT 300 SKIP_RETURN_CODE 77)

# Version resources, and settings files, of the described machine.
target_sources(vxr_test_support PRIVATE tests/support/pe_builder.cpp)
vxr_test(version_test machine platform/machine/version/version_resource_test.cpp)
vxr_test(settings_file_test machine platform/machine/files/settings_file_test.cpp)

# The rescue system: what a restored system's files tell, and what forbids changing it.
vxr_test(restored_system_test unit rescue/restored_system_test.cpp)
target_link_libraries(restored_system_test PRIVATE vxr_rescue)

# What the platform's calls give, here and on Windows alike.
set(VXR_CONTRACT_TESTS tests/platform_contract_files_test.cpp tests/platform_contract_settings_test.cpp
    tests/platform_contract_inf_test.cpp tests/platform_differences_test.cpp
    tests/log_bytes_test.cpp)
vxr_test(platform_contract_test machine ${VXR_CONTRACT_TESTS})
target_compile_definitions(platform_contract_test PRIVATE VXR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")

# What the command line makes of an extension file.
vxr_test(extension_view_test unit tools/vxr/extension/extension_view_test.cpp)
target_link_libraries(extension_view_test PRIVATE vxr_commands)

# The example for authors of hosts, in C, against the shared library as they have it.
add_executable(list_volumes examples/extension-file/list_volumes.c)
target_link_libraries(list_volumes PRIVATE vxrcore)
add_test(NAME extension_example COMMAND ${PROJECT_SOURCE_DIR}/tests/extension_example_test.sh
         $<TARGET_FILE:list_volumes> $<TARGET_FILE:make_extension>)
set_tests_properties(extension_example PROPERTIES LABELS unit TIMEOUT 60)

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
