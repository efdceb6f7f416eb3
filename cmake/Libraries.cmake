# vorlane_library(NAME [NO_PCH] SOURCES... [HEADERS...] [DEPENDS libs...] [PRIVATE libs...])
#
# One folder, one library. Every header is also compiled alone (target
# all_verify_interface_header_sets), and the shared precompiled header is used
# by all who depend on vorlane_base.
function(vorlane_library name)
  cmake_parse_arguments(arg "NO_PCH" "" "SOURCES;HEADERS;DEPENDS;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${CMAKE_SOURCE_DIR}/src FILES ${arg_HEADERS})
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE ${arg_PRIVATE})
  if(NOT arg_NO_PCH)
    vorlane_precompiled(${name})
  endif()
endfunction()

# vorlane_precompiled(TARGET): TARGET uses the one precompiled header.
function(vorlane_precompiled name)
  if(TARGET vorlane_pch AND NOT name STREQUAL "vorlane_pch")
    target_precompile_headers(${name} REUSE_FROM vorlane_pch)
    # So that the target sees the same usage requirements as the header did.
    target_link_libraries(${name} PRIVATE vorlane_pch)
  endif()
endfunction()

# vorlane_program(NAME SOURCES... [DEPENDS libs...]): an executable in bin/.
function(vorlane_program name)
  cmake_parse_arguments(arg "NO_PCH" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS})
  if(NOT arg_NO_PCH)
    vorlane_precompiled(${name})
  endif()
endfunction()

# vorlane_test(NAME [SERIAL] SOURCES... [DEPENDS libs...] [LABELS...] [TIMEOUT seconds]): a
# GoogleTest program; NAME is its one ctest entry, so that `./test.sh NAME` runs it. Those
# labelled "concurrent" are also built by the target concurrent_tests. SERIAL: it compares
# times, so no other test runs beside it.
function(vorlane_test name)
  cmake_parse_arguments(arg "SERIAL" "TIMEOUT" "SOURCES;DEPENDS;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(test_${name} ${arg_SOURCES})
  target_link_libraries(test_${name} PRIVATE ${arg_DEPENDS} GTest::gmock GTest::gtest_main)
  # Fixtures are included as "support/NAME.h" or "store/NAME.h".
  target_include_directories(test_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  vorlane_precompiled(test_${name})
  add_test(NAME ${name} COMMAND test_${name})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}" RUN_SERIAL ${arg_SERIAL})
  if("concurrent" IN_LIST arg_LABELS)
    add_dependencies(concurrent_tests test_${name})
  endif()
endfunction()
