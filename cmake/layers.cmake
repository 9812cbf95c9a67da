# Fails the configure step when a logic folder includes what stands above it, tests the system it is built for, or reaches
# past the platform layer; and when a test on disk is in no target.

# Floors from the top; a path belongs to the first prefix that fits it.
set(VXR_FLOORS
  "tools/=0" "tests/=0" "bench/=0" "fuzz/=0"
  "bmext/create=2"
  "device/disk_scan=3" "device/installed_driver=3" "volume/=3"
  "inf/driver_search=4"
  "inf/=5" "registry/hive=5"
  "engine/path_catalogue=6"
  "bmext/=7" "restore/=7"
  "device/=8"
  "registry/=9"
  "engine/base/=10"
  "engine/=1"
  "log/=11"
  "vxr/=12" "vxrcore/=12" "include/=12"
  "platform/=13")

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

function(vxr_check_layers)
  file(GLOB_RECURSE files RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
    engine/*.h engine/*.cpp log/*.h log/*.cpp bmext/*.h bmext/*.cpp device/*.h device/*.cpp inf/*.h inf/*.cpp
    registry/*.h registry/*.cpp volume/*.h volume/*.cpp restore/*.h restore/*.cpp)
  foreach(file IN LISTS files)
    if(file MATCHES "_test\\.cpp$")
      continue()
    endif()
    vxr_floor("${file}" own)
    get_filename_component(folder "${file}" DIRECTORY)
    file(STRINGS "${file}" lines REGEX "#[ ]*(include|if|elif)|windows\\.h|_WIN32")
    foreach(line IN LISTS lines)
      if(line MATCHES "(^|[^A-Za-z0-9_])_WIN32|windows\\.h")
        message(FATAL_ERROR "${file}: only platform/ may know which system it is built for: ${line}")
      endif()
      if(line MATCHES "platform/(machine|win32)")
        message(FATAL_ERROR "${file}: includes past the platform layer: ${line}")
      endif()
      if(line MATCHES "#[ ]*include[ ]+\"([^\"]+)\"")
        set(target "${CMAKE_MATCH_1}")
        vxr_floor("${target}" theirs)
        get_filename_component(targetFolder "${target}" DIRECTORY)
        if(theirs EQUAL -1)
          message(FATAL_ERROR "${file}: includes ${target}, which belongs to no folder of the house")
        elseif(theirs LESS own OR (theirs EQUAL own AND NOT folder STREQUAL targetFolder))
          message(FATAL_ERROR "${file}: includes ${target}, which does not stand below it")
        endif()
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
