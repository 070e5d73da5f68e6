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

# ws_fuzz(<name> SOURCES <files...> [LIBS <targets...>])
# A libFuzzer target fuzz_<name> in <build>/fuzz-bin, and the CTest test fuzz_<name>_replay
# (label "fuzz"), which runs every input of fuzz/corpus/<name>/ once and fails on a crash, a
# property that does not hold, a leak or a time-out (-runs=0 reads the corpus and fuzzes
# nothing, so the test is as repeatable as any other). Only in a WS_BUILD_FUZZ build.
function(ws_fuzz name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(fuzz_${name} ${ARG_SOURCES})
  set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz-bin)
  target_include_directories(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR})
  # The targets' own checks and models need no coverage feedback, only the code under test.
  target_compile_options(fuzz_${name} PRIVATE -fno-sanitize=fuzzer-no-link)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(fuzz_${name} PRIVATE ${ARG_LIBS})
  set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  add_test(NAME fuzz_${name}_replay
           COMMAND fuzz_${name} -runs=0 -timeout=10 -rss_limit_mb=2048 ${corpus})
  set_tests_properties(fuzz_${name}_replay PROPERTIES LABELS fuzz TIMEOUT 300)
endfunction()
