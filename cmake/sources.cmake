# The library's folders, each an archive of its own; a test or the shared library links them all and takes what it needs.

set(VXR_LOGIC_ARCHIVES)
function(vxr_logic name)
  add_library(vxr_${name} STATIC ${ARGN})
  target_compile_options(vxr_${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  set(VXR_LOGIC_ARCHIVES ${VXR_LOGIC_ARCHIVES} vxr_${name} PARENT_SCOPE)
endfunction()

vxr_logic(log log/heap.cpp log/product.cpp log/log.cpp log/dump.cpp log/record_dump.cpp)
vxr_logic(base engine/base/parameters.cpp engine/base/status.cpp engine/base/strings.cpp engine/base/files.cpp
          engine/base/processes.cpp)
vxr_logic(engine engine/paths/path_catalogue.cpp engine/lifecycle.cpp engine/restore_run.cpp engine/extension_job.cpp
          engine/boot_sector.cpp engine/boot_volume.cpp)
vxr_logic(registry registry/apply_edits.cpp registry/boot_record.cpp registry/edit_keys.cpp registry/edits.cpp
          registry/mount/hive.cpp registry/published_name.cpp registry/values.cpp)
vxr_logic(package package/choose/candidates.cpp package/choose/index.cpp package/choose/judgement.cpp
          package/choose/models.cpp package/choose/own_drivers.cpp package/choose/own_service.cpp
          package/choose/rank.cpp package/device_driver.cpp package/find_drivers.cpp package/plan/apply.cpp
          package/plan/file_bytes.cpp package/plan/plan.cpp package/plan/plan_files.cpp package/plan/plan_registry.cpp
          package/plan/plan_services.cpp package/plan/registry_lines.cpp package/read/destinations.cpp
          package/read/driver_store.cpp package/read/image_facts.cpp package/read/inf_source.cpp
          package/read/installation.cpp package/read/numbers.cpp package/read/plain_names.cpp package/read/reading.cpp
          package/read/service_lines.cpp package/read/sources.cpp package/restored_system.cpp)
vxr_logic(restore restore/settings.cpp)
vxr_logic(volume volume/volume.cpp)
vxr_logic(bmext bmext/load.cpp bmext/target_os.cpp bmext/create/create.cpp bmext/create/create_system.cpp
    bmext/create/create_volumes.cpp
          bmext/query.cpp bmext/query_volume.cpp)
vxr_logic(device device/records.cpp device/properties.cpp device/facts.cpp device/class_repair.cpp
device/scan/disk_scan.cpp device/scan/devices_above.cpp device/scan/disk_identity.cpp device/scan/installed_driver.cpp device/scan/file_facts.cpp)
vxr_logic(inf inf/checks.cpp inf/field_reader.cpp inf/search/driver_search.cpp inf/search/driver_search_files.cpp
          inf/search/driver_search_ids.cpp inf/install_section.cpp inf/copy_section.cpp inf/service_section.cpp
          inf/critical_device.cpp inf/newer_record.cpp)

# The INF reader and the code pages stand alone: the command line shows files with them.
if(WIN32)
  set(VXR_CODE_PAGE platform/win32/code_page.cpp)
else()
  # The tables of the code pages, which no program then needs a converter of the C library for.
  add_executable(make_code_pages platform/text/make_code_pages.cpp)
  set(tables ${PROJECT_BINARY_DIR}/code_page_tables.cpp)
  add_custom_command(OUTPUT ${tables} COMMAND make_code_pages ${tables} DEPENDS make_code_pages VERBATIM)
  set(VXR_CODE_PAGE platform/text/code_page.cpp ${tables})
endif()
add_library(vxr_inf_file STATIC platform/inf/inf_file.cpp platform/inf/inf_lines.cpp
  platform/inf/inf_tokens.cpp platform/inf/inf_values.cpp platform/inf/inf_decoding.cpp platform/inf/inf_fields.cpp platform/inf/inf_headers.cpp
  platform/inf/inf_section_table.cpp platform/text/ansi_case.cpp ${VXR_CODE_PAGE})

# What stands behind platform.h: Windows itself, or the described machine.
set(VXR_BOTH_BUILDS platform/text/format.cpp platform/text/program_name.cpp)
if(WIN32)
  add_library(vxr_platform STATIC platform/win32/calls.cpp ${VXR_BOTH_BUILDS})
  target_link_libraries(vxr_platform PUBLIC setupapi cfgmgr32 version)
else()
  # Hive files, their logs and what is in them, version resources, and new files in the place of old ones, without a
  # machine: the command line and the rescue system use them too.
  add_library(vxr_hive_file STATIC
    platform/machine/base/errors.cpp
    platform/machine/host/digest.cpp platform/machine/host/file_bytes.cpp platform/machine/host/listing.cpp
    platform/machine/host/replace_file.cpp
    platform/machine/hive/base_block.cpp platform/machine/hive/hive.cpp platform/machine/hive/hive_check.cpp
    platform/machine/hive/hive_keys.cpp
    platform/machine/hive/hive_log.cpp platform/machine/hive/hive_logs.cpp
    platform/machine/hive/hive_recovery.cpp platform/machine/hive/marvin.cpp
    platform/machine/hive/registry_path.cpp platform/machine/hive/registry_value.cpp
    platform/machine/version/version_resource.cpp platform/machine/version/version_tree.cpp)
  # One object of each program says whether a call fails on purpose (fault.h); it can where the property VXR_FAULTS is on.
  add_library(vxr_faults OBJECT platform/machine/base/fault.cpp)
  add_library(vxr_no_faults OBJECT platform/machine/base/no_fault.cpp)
  target_link_libraries(vxr_hive_file PUBLIC ${VXR_HIVEX} ${VXR_NETTLE} INTERFACE
    "$<TARGET_OBJECTS:$<IF:$<BOOL:$<TARGET_PROPERTY:VXR_FAULTS>>,vxr_faults,vxr_no_faults>>")
  set(VXR_HIVE_FILE "vxr_hive_file,")
  add_library(vxr_platform STATIC ${VXR_BOTH_BUILDS} platform/machine/machine.cpp
    platform/machine/base/handles.cpp platform/machine/base/heap.cpp platform/machine/base/report.cpp
    platform/machine/text/command_line.cpp platform/machine/text/settings_text.cpp
    platform/machine/text/wide_text.cpp platform/machine/text/wildcard.cpp
    platform/machine/host/attributes.cpp platform/machine/host/rehearsal.cpp
    platform/machine/description/current.cpp platform/machine/description/description.cpp
    platform/machine/description/description_values.cpp platform/machine/description/setup_class.cpp
    platform/machine/hive/hive_cells.cpp platform/machine/hive/hive_save.cpp
    platform/machine/files/copy.cpp platform/machine/files/directories.cpp
    platform/machine/files/disk_index.cpp platform/machine/files/disks.cpp
    platform/machine/files/file_io.cpp platform/machine/files/files.cpp platform/machine/files/mapping.cpp
    platform/machine/files/own_files.cpp platform/machine/files/path_syntax.cpp platform/machine/files/paths.cpp
    platform/machine/files/search.cpp platform/machine/files/settings_file.cpp
    platform/machine/files/storage.cpp platform/machine/files/stream.cpp platform/machine/files/volumes.cpp
    platform/machine/registry/hive_mount.cpp platform/machine/registry/registry.cpp
    platform/machine/registry/registry_edit.cpp
    platform/machine/registry/registry_state.cpp
    platform/machine/version/version_block.cpp platform/machine/version/version_calls.cpp
    platform/machine/setup/decoration.cpp platform/machine/setup/device_set.cpp
    platform/machine/setup/device_tree.cpp platform/machine/setup/devices.cpp
    platform/machine/setup/driver_match.cpp platform/machine/setup/driver_version.cpp
    platform/machine/setup/drivers.cpp platform/machine/setup/inf_cache.cpp platform/machine/setup/inf_calls.cpp
    platform/machine/system/facts.cpp platform/machine/system/processes.cpp platform/machine/system/prompts.cpp
    platform/machine/system/windows.cpp)
  target_link_libraries(vxr_platform PUBLIC ${VXR_HIVEX} ${VXR_NETTLE} ${VXR_TOMLPP})
endif()

add_library(vxr_everything INTERFACE)
list(JOIN VXR_LOGIC_ARCHIVES "," archives)
target_link_libraries(vxr_everything INTERFACE
    "$<LINK_GROUP:RESCAN,${archives},vxr_platform,${VXR_HIVE_FILE}vxr_inf_file>")

# The whole archives, so that the exported functions are in; the rest stays inside, by the list of what is exported.
list(TRANSFORM VXR_LOGIC_ARCHIVES PREPEND "$<LINK_LIBRARY:WHOLE_ARCHIVE," OUTPUT_VARIABLE whole)
list(TRANSFORM whole APPEND ">")
add_library(vxrcore SHARED)
target_link_libraries(vxrcore PRIVATE ${whole} "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_platform>")
target_include_directories(vxrcore INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
if(WIN32)
  enable_language(RC)
  configure_file(platform/win32/version.rc.in ${PROJECT_BINARY_DIR}/version.rc @ONLY)
  target_sources(vxrcore PRIVATE platform/win32/entry.cpp platform/win32/tick_count.cpp platform/win32/vxrcore.def
                 ${PROJECT_BINARY_DIR}/version.rc)
  set_target_properties(vxrcore PROPERTIES PREFIX "" IMPORT_PREFIX "")
  target_link_libraries(vxrcore PRIVATE vxr_inf_file)
  target_link_options(vxrcore PRIVATE $<$<NOT:$<CONFIG:Debug>>:-s>)
else()
  # Without a list, templates of the C++ library were exported too, some as symbols that forbid unloading.
  set(map ${PROJECT_SOURCE_DIR}/platform/machine/vxrcore.map)
  target_sources(vxrcore PRIVATE ${map})
  target_link_libraries(vxrcore PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_inf_file>"
                        "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_hive_file>")
  # With clang the library of the sanitizers is in the program alone.
  target_link_options(vxrcore PRIVATE $<$<NOT:$<BOOL:${VXR_SANITIZE}>>:-Wl,--no-undefined>
                      -Wl,--version-script=${map})
  set_target_properties(vxrcore PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0 LINKER_LANGUAGE CXX LINK_DEPENDS ${map}
                        VXR_FAULTS ${VXR_FAULT_POINTS})
endif()

# The rescue system: the machine that Linux runs on, and the restored system as its files tell. The ids of devices serve
# both builds.
add_library(vxr_rescue STATIC rescue/windows_ids.cpp)
if(NOT WIN32)
  target_sources(vxr_rescue PRIVATE
    rescue/block_device.cpp rescue/boot_drivers.cpp rescue/controller_argument.cpp rescue/describe.cpp
    rescue/device_tables.cpp rescue/disk_chain.cpp rescue/disk_names.cpp rescue/find_windows.cpp
    rescue/hibernation.cpp rescue/mount_table.cpp rescue/ntfs_volume.cpp rescue/obstacles.cpp rescue/pci_tree.cpp
    rescue/restored_system.cpp rescue/sysfs.cpp rescue/system_files.cpp rescue/undo_folder.cpp rescue/undo_keep.cpp
    rescue/undo_look.cpp rescue/undo_manifest.cpp rescue/undo_take_back.cpp rescue/witnesses.cpp)
  target_link_libraries(vxr_rescue PUBLIC "$<LINK_GROUP:RESCAN,vxr_hive_file,vxr_inf_file>" PRIVATE vxr_headers)
endif()
