# Fails the configure step when a file includes what does not stand below it, when the logic tests the system it is built
# for or reaches past the platform layer, and when a test on disk is in no target.

# Floors from the top, one a folder, so that no two folders include each other; a path belongs to the first prefix that
# fits it. Folders of one floor do not know each other.
set(VXR_FLOORS
  "tools/vxr/base/=4" "tools/vxr/run/=2" "tools/vxr/rescue/=1" "tools/vxr/main.cpp=0" "tools/vxr/command_line=0"
  "tools/vxr/=3"
  "rescue/=5"
  "bmext/create/=11"
  "device/scan/=12" "volume/=12"
  "inf/search/=13" "package/read/=16" "package/choose/=15" "package/plan/=14" "package/=13"
  "inf/=14" "registry/mount/=14"
  "engine/paths/=15"
  "bmext/=16" "restore/=16"
  "device/=17"
  "registry/=18"
  "engine/base/=19"
  "engine/=10"
  "log/=20"
  "include/vxr/=21"
  "platform/machine/machine=30"
  "platform/machine/system/=31"
  "platform/machine/setup/=32"
  "platform/machine/version/=33"
  "platform/machine/registry/=34"
  "platform/machine/files/=35"
  "platform/machine/hive/=36"
  "platform/machine/host/=37" "platform/machine/description/=37"
  "platform/machine/text/=38" "platform/inf/=38" "platform/win32/=38"
  "platform/machine/base/=39" "platform/text/=39"
  "platform/=40"
  "include/vxrcore/=41")

# What the logic sees of the platform: the seam, and the reader of INF files, which both builds have. And what the command
# line and the rescue system, hosts like any other, see beside the public headers: the readers of INF files and hives,
# which show files without a machine.
set(VXR_LOGIC_SEES "^platform/([a-z_]+\\.h$|inf/inf_file\\.h$)")
set(VXR_TOOLS_SEE "^platform/([a-z_]+\\.h$|inf/|text/|win32/types|machine/(hive|version|host|base|text)/)")
# platform.h is the seam: it takes the types and the calls of the system that it is built for.
set(VXR_SEAM "platform/platform.h")

function(vxr_floor path out)
  foreach(entry IN LISTS VXR_FLOORS)
    string(REGEX MATCH "^([^=]+)=([0-9]+)$" _ "${entry}")
    set(prefix "${CMAKE_MATCH_1}")
    set(floor "${CMAKE_MATCH_2}")
    string(FIND "${path}" "${prefix}" at)
    if(at EQUAL 0)
      set(${out} ${floor} PARENT_SCOPE)
      return()
    endif()
  endforeach()
  set(${out} -1 PARENT_SCOPE)
endfunction()

# One include of a file: what it names must stand below, or beside it in its own folder.
function(vxr_check_include file target)
  if(target MATCHES "^vxr(core)?/")
    set(target "include/${target}")
  endif()
  vxr_floor("${file}" own)
  vxr_floor("${target}" theirs)
  get_filename_component(folder "${file}" DIRECTORY)
  get_filename_component(targetFolder "${target}" DIRECTORY)
  if(theirs EQUAL -1)
    message(FATAL_ERROR "${file}: includes ${target}, which belongs to no folder of the house")
  elseif(theirs LESS own OR (theirs EQUAL own AND NOT folder STREQUAL targetFolder))
    message(FATAL_ERROR "${file}: includes ${target}, which does not stand below it")
  endif()
  if(target MATCHES "^platform/" AND NOT file MATCHES "^platform/")
    set(seen "${VXR_LOGIC_SEES}")
    if(file MATCHES "^(tools|rescue)/")
      set(seen "${VXR_TOOLS_SEE}")
    endif()
    if(NOT target MATCHES "${seen}")
      message(FATAL_ERROR "${file}: includes past the platform layer: ${target}")
    endif()
  endif()
endfunction()

function(vxr_check_layers)
  set(folders engine log bmext device inf package registry volume rescue restore include platform tools)
  set(patterns)
  foreach(folder IN LISTS folders)
    list(APPEND patterns ${folder}/*.h ${folder}/*.cpp)
  endforeach()
  file(GLOB_RECURSE files RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${patterns})
  foreach(file IN LISTS files)
    if(file MATCHES "_test\\.cpp$" OR file STREQUAL VXR_SEAM)
      continue()
    endif()
    file(STRINGS "${file}" lines REGEX "#[ ]*(include|if|elif)|windows\\.h|_WIN32")
    foreach(line IN LISTS lines)
      if(NOT file MATCHES "^(platform|tools|include)/" AND line MATCHES "(^|[^A-Za-z0-9_])_WIN32|windows\\.h")
        message(FATAL_ERROR "${file}: only platform/ may know which system it is built for: ${line}")
      endif()
      if(line MATCHES "#[ ]*include[ ]+\"([^\"]+)\"")
        vxr_check_include("${file}" "${CMAKE_MATCH_1}")
      endif()
    endforeach()
  endforeach()

  file(GLOB_RECURSE tests RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS *_test.cpp)
  file(READ ${PROJECT_SOURCE_DIR}/cmake/tests.cmake listed)
  foreach(test IN LISTS tests)
    if(test MATCHES "^build")
      continue()
    endif()
    string(FIND "${listed}" "${test}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${test} is in no target of cmake/tests.cmake")
    endif()
  endforeach()
endfunction()
