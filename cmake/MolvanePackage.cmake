# molvane_package(NAME SOURCES ... [LINKS public targets] [PRIVATE_LINKS targets] [TESTS ...] [TEST_LINKS ...])
#
# One package of the house: a static library Molvane::NAME whose headers are included as "NAME/Header.hpp",
# and one test program NAMETests made of the tests that stand beside the sources.
function(molvane_package name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;PRIVATE_LINKS;TESTS;TEST_LINKS" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  add_library(Molvane::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME "Molvane${name}")
  target_link_libraries(${name} PUBLIC MolvaneCompile ${arg_LINKS} PRIVATE ${arg_PRIVATE_LINKS})
  if(MOLVANE_BUILD_TESTS AND arg_TESTS)
    molvane_test(${name}Tests SOURCES ${arg_TESTS} LINKS ${name} ${arg_TEST_LINKS})
  endif()
endfunction()

# molvane_test(NAME SOURCES ... LINKS ...): a GoogleTest program, run by CTest as one test.
function(molvane_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  find_package(GTest REQUIRED)
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE MolvaneCompile ${arg_LINKS} GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 900)
endfunction()
