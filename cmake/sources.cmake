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
vxr_logic(engine engine/path_catalogue.cpp engine/lifecycle.cpp engine/restore_run.cpp engine/extension_job.cpp
          engine/boot_sector.cpp engine/boot_volume.cpp)
vxr_logic(registry registry/values.cpp registry/hive.cpp)
vxr_logic(restore restore/settings.cpp)
vxr_logic(volume volume/volume.cpp)
vxr_logic(bmext bmext/load.cpp bmext/target_os.cpp bmext/create.cpp bmext/create_system.cpp bmext/create_volumes.cpp
          bmext/query.cpp bmext/query_volume.cpp)
vxr_logic(device device/records.cpp device/properties.cpp device/facts.cpp device/class_repair.cpp
          device/disk_scan.cpp device/disk_identity.cpp device/installed_driver.cpp device/file_facts.cpp)
vxr_logic(inf inf/checks.cpp inf/field_reader.cpp inf/driver_search.cpp inf/driver_search_files.cpp
          inf/driver_search_ids.cpp inf/install_section.cpp inf/copy_section.cpp inf/service_section.cpp
          inf/critical_device.cpp)

# The INF reader and the code pages stand alone: the command line shows files with them.
if(WIN32)
  set(VXR_CODE_PAGE platform/win32/code_page.cpp)
else()
  set(VXR_CODE_PAGE platform/machine/code_page.cpp)
endif()
add_library(vxr_inf_file STATIC platform/machine/inf_file.cpp platform/machine/inf_lines.cpp
  platform/machine/inf_tokens.cpp ${VXR_CODE_PAGE})

# What stands behind platform.h: Windows itself, or the described machine.
if(WIN32)
  add_library(vxr_platform STATIC platform/win32/calls.cpp platform/format.cpp platform/program_name.cpp)
  target_link_libraries(vxr_platform PUBLIC setupapi cfgmgr32 version)
else()
  # Hive files, their logs and what is in them, and version resources, without a machine: the command line reads them too.
  add_library(vxr_hive_file STATIC
    platform/machine/base_block.cpp platform/machine/file_bytes.cpp platform/machine/marvin.cpp
    platform/machine/hive_log.cpp platform/machine/hive_logs.cpp platform/machine/hive_recovery.cpp
    platform/machine/hive_check.cpp platform/machine/hive.cpp platform/machine/registry_path.cpp
    platform/machine/registry_value.cpp platform/machine/fold_name.cpp platform/machine/listing.cpp
    platform/machine/version_resource.cpp platform/machine/version_tree.cpp)
  target_link_libraries(vxr_hive_file PUBLIC PkgConfig::HIVEX)
  set(VXR_HIVE_FILE "vxr_hive_file,")
  add_library(vxr_platform STATIC
    platform/machine/heap.cpp platform/machine/errors.cpp platform/format.cpp platform/program_name.cpp
    platform/machine/wide_text.cpp
    platform/machine/fault.cpp platform/machine/machine.cpp platform/machine/description.cpp
    platform/machine/description_values.cpp platform/machine/setup_class.cpp platform/machine/facts.cpp
    platform/machine/settings_file.cpp platform/machine/settings_text.cpp platform/machine/replace_file.cpp
    platform/machine/windows.cpp platform/machine/prompts.cpp platform/machine/paths.cpp
    platform/machine/own_files.cpp
    platform/machine/path_syntax.cpp platform/machine/handles.cpp
    platform/machine/attributes.cpp platform/machine/wildcard.cpp platform/machine/command_line.cpp
    platform/machine/files.cpp platform/machine/file_io.cpp platform/machine/stream.cpp platform/machine/mapping.cpp
    platform/machine/copy.cpp platform/machine/rehearsal.cpp platform/machine/search.cpp platform/machine/storage.cpp
    platform/machine/disks.cpp platform/machine/volumes.cpp platform/machine/version_block.cpp
    platform/machine/version_calls.cpp platform/machine/processes.cpp
    platform/machine/registry.cpp
    platform/machine/registry_state.cpp platform/machine/hive_save.cpp platform/machine/hive_mount.cpp
    platform/machine/hive_cells.cpp
    platform/machine/inf_calls.cpp platform/machine/inf_cache.cpp platform/machine/device_tree.cpp
    platform/machine/device_set.cpp platform/machine/devices.cpp platform/machine/decoration.cpp
    platform/machine/driver_match.cpp platform/machine/driver_version.cpp platform/machine/drivers.cpp)
  target_link_libraries(vxr_platform PUBLIC PkgConfig::HIVEX PkgConfig::TOMLPP)
endif()

add_library(vxr_everything INTERFACE)
list(JOIN VXR_LOGIC_ARCHIVES "," archives)
target_link_libraries(vxr_everything INTERFACE "$<LINK_GROUP:RESCAN,${archives},vxr_platform,${VXR_HIVE_FILE}vxr_inf_file>")

# The whole archives, so that the exported functions are in; the rest stays inside, by the list of what is exported.
list(TRANSFORM VXR_LOGIC_ARCHIVES PREPEND "$<LINK_LIBRARY:WHOLE_ARCHIVE," OUTPUT_VARIABLE whole)
list(TRANSFORM whole APPEND ">")
add_library(vxrcore SHARED)
target_link_libraries(vxrcore PRIVATE ${whole} "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_platform>")
target_include_directories(vxrcore INTERFACE ${PROJECT_SOURCE_DIR}/include)
if(WIN32)
  enable_language(RC)
  configure_file(platform/win32/version.rc.in ${PROJECT_BINARY_DIR}/version.rc @ONLY)
  target_sources(vxrcore PRIVATE platform/win32/entry.cpp platform/win32/vxrcore.def ${PROJECT_BINARY_DIR}/version.rc)
  set_target_properties(vxrcore PROPERTIES PREFIX "" IMPORT_PREFIX "")
  target_link_options(vxrcore PRIVATE $<$<NOT:$<CONFIG:Debug>>:-s>)
else()
  # Without a list, templates of the C++ library were exported too, some as symbols that forbid unloading.
  set(map ${PROJECT_SOURCE_DIR}/platform/machine/vxrcore.map)
  target_sources(vxrcore PRIVATE ${map})
  target_link_libraries(vxrcore PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_inf_file>"
                        "$<LINK_LIBRARY:WHOLE_ARCHIVE,vxr_hive_file>")
  target_link_options(vxrcore PRIVATE -Wl,--no-undefined -Wl,--version-script=${map})
  set_target_properties(vxrcore PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0 LINKER_LANGUAGE CXX LINK_DEPENDS ${map})
endif()
