# Build helpers shared by every folder: library parts, unit tests and benchmarks.

# ws_library_part(<name> SOURCES <files...> [DEPS <targets...>])
# One static, position-independent archive per folder. libwebsession.so takes every part whole;
# unit tests link the parts they exercise directly, so they can reach internals that the shared
# library hides.
function(ws_library_part name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  set_property(GLOBAL APPEND PROPERTY WS_LIBRARY_PARTS ${name})
endfunction()

# ws_test(<name> SOURCES <files...> [LIBS <targets...>] [RELOCATED] [TIMEOUT <s>] [LABELS <l...>])
# A GoogleTest executable registered with CTest. RELOCATED runs every test binary from a private
# installation tree under a temporary directory (see tests/support/TestTree.h), so that code which
# finds its installation from the running executable is tested for real and parallel runs never
# share files.
function(ws_test name)
  cmake_parse_arguments(ARG "RELOCATED" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/test-bin)
  if(ARG_RELOCATED)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ws_test_support_relocated GTest::gtest GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ws_test_support GTest::gtest_main GTest::gmock)
  endif()
  add_test(NAME ${name} COMMAND ${name})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()

# ws_bench(<name> SOURCES <files...> [LIBS <targets...>])
function(ws_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench-bin)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
endfunction()
