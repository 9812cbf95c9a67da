# A whole build in half of the time: several files of a target are compiled as one, and headers of others that most files
# include are compiled once for each set of options that they are used with. None of ours: a change of one of them must
# not build all again. The names in files of one target differ for that, also those that stand in no header; and a file
# still includes what it uses: scripts/lint takes each by itself.

# Units of a target's files: each belongs to the first of these, NAME=PATTERN, that its path in the target's folder
# matches.
function(vxr_unity_groups target)
  get_target_property(sources ${target} SOURCES)
  get_target_property(folder ${target} SOURCE_DIR)
  foreach(group IN LISTS ARGN)
    string(REGEX MATCH "^([a-z]+)=(.*)$" _ "${group}")
    set(name ${CMAKE_MATCH_1})
    set(members ${sources})
    list(FILTER members INCLUDE REGEX "${CMAKE_MATCH_2}")
    list(REMOVE_ITEM sources ${members})
    foreach(member IN LISTS members)
      cmake_path(ABSOLUTE_PATH member BASE_DIRECTORY ${folder})
      set_source_files_properties(${member} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${name})
    endforeach()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()

function(vxr_quick_build)
  set(common algorithm array charconv cstdint cstdio cstring filesystem functional map memory optional set string
      string_view tuple unordered_map utility vector)
  set(json nlohmann/json.hpp)
  set(tests gmock/gmock.h gtest/gtest.h fstream sstream)

  # The logic without exceptions, other archives, the command line, tests; each list begins with the target that has the
  # headers compiled.
  set(logic ${VXR_LOGIC_ARCHIVES})
  set(archives vxr_inf_file vxr_platform vxr_hive_file vxr_rescue vxr_extension_view vxr_faults vxr_no_faults)
  set(tools vxr_commands)
  get_property(of_tests GLOBAL PROPERTY VXR_OF_TESTS)
  set(logic_headers ${common})
  set(archives_headers ${common})
  set(tools_headers ${common} ${json})
  set(of_tests_headers ${common} ${tests})
  foreach(group logic archives tools of_tests)
    set(owner)
    foreach(target ${${group}})
      if(NOT TARGET ${target})
        continue()
      endif()
      set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
      if(VXR_CCACHE)
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)
      endif()
      if(owner)
        target_precompile_headers(${target} REUSE_FROM ${owner})
      else()
        set(owner ${target})
        list(TRANSFORM ${group}_headers REPLACE "(.+)" "$<$<COMPILE_LANGUAGE:CXX>:<\\1$<ANGLE-R>>" OUTPUT_VARIABLE headers)
        target_precompile_headers(${target} PRIVATE ${headers})
      endif()
    endforeach()
  endforeach()
  # Few units, since each makes the templates of the JSON library anew, which takes seconds. Those of the options are as
  # slow: a unit of their own, which programs of tests do not link.
  vxr_unity_groups(vxr_commands "options=/command_line|/rescue_commands" "rescue=/rescue/|/hive/|/boot/" "run=.")
  # vxr.exe links the query, and cannot link what logs: a file that does belongs to the other unit.
  vxr_unity_groups(vxr_package "injection=/plan/|/own_|package/device_driver|package/restored_system" "query=.")
endfunction()
