# Unit tests stand beside their sources, one program a folder; the label says which need a described machine.

add_library(vxr_test_support STATIC tests/support/test_machine.cpp tests/support/hive_builder.cpp)
target_link_libraries(vxr_test_support PUBLIC vxr_everything GTest::gtest GTest::gmock GTest::gtest_main)

include(GoogleTest)
function(vxr_test name label)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE vxr_test_support)
  gtest_discover_tests(${name} TEST_PREFIX ${name}. PROPERTIES LABELS ${label} TIMEOUT 300 DISCOVERY_TIMEOUT 60)
endfunction()
