# What every target of this project shares: the language, the warnings, the sanitizers.
function(lorvale_common target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF
      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
      $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
      $<$<BOOL:${LORVALE_WERROR}>:-Werror>)
  if(LORVALE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${LORVALE_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${LORVALE_SANITIZE})
    if(LORVALE_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
  endif()
endfunction()

# The same for what sees the inside of the library: its own sources, tests, benchmarks and fuzz targets.
function(lorvale_target_defaults target)
  lorvale_common(${target})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
endfunction()

# lorvale_test(NAME source...): one GoogleTest program; each of its tests is a test of ctest.  With
# LORVALE_THREAD_TESTS_ONLY the sources go to the one program thread_tests instead, and of the tests only those
# files that hold a suite about threads.
function(lorvale_test name)
  if(LORVALE_THREAD_TESTS_ONLY)
    foreach(source IN LISTS ARGN)
      file(STRINGS ${source} suites REGEX "^TEST(_F|_P)?\\([A-Za-z0-9]*Threads,")
      if(suites OR NOT source MATCHES "Test\\.cpp$")
        set_property(GLOBAL APPEND PROPERTY LORVALE_THREAD_TESTS ${CMAKE_CURRENT_SOURCE_DIR}/${source})
      endif()
    endforeach()
  else()
    lorvale_test_program(${name} ${ARGN})
  endif()
endfunction()

# What the tests' own sources share.  The sanitizers see all of them, but optimising them would take most of the
# time of a build: one file takes 20 s with and 11 s without.
function(lorvale_test_defaults target)
  lorvale_target_defaults(${target})
  if(LORVALE_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# lorvale_test_program(NAME source...): the program itself.  All share the compiled headers of the test support.
function(lorvale_test_program name)
  add_executable(${name} ${ARGN})
  lorvale_test_defaults(${name})
  target_link_libraries(${name} PRIVATE lorvale_test_support lorvale_internal GTest::gmock GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM lorvale_test_support)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT 300)
endfunction()

# lorvale_fuzz(NAME source): with LORVALE_BUILD_FUZZ a libFuzzer program.  In every build with tests, the
# test fuzz.NAME runs the target once over each file of fuzz/corpus/NAME.  One program, replay, holds all targets.
function(lorvale_fuzz name source)
  if(LORVALE_BUILD_FUZZ)
    add_executable(fuzz_${name} ${source})
    lorvale_target_defaults(fuzz_${name})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz_${name} PRIVATE lorvale_internal)
  endif()
  if(TARGET replay)
    # A source of two lines that gives the target a name of its own.
    set(renamed ${PROJECT_BINARY_DIR}/fuzz/targets/${name}.cpp)
    file(CONFIGURE OUTPUT ${renamed} CONTENT "#define LLVMFuzzerTestOneInput replay_${name}\n#include \"${CMAKE_CURRENT_SOURCE_DIR}/${source}\"\n")
    target_sources(replay PRIVATE ${renamed})
    set_property(GLOBAL APPEND PROPERTY LORVALE_FUZZ_TARGETS ${name})
    add_test(NAME fuzz.${name} COMMAND replay ${name} ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  endif()
endfunction()

# lorvale_bench(NAME source...): one Google Benchmark program.
function(lorvale_bench name)
  add_executable(${name} ${ARGN})
  lorvale_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE LORVALE_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE lorvale_internal benchmark::benchmark_main)
endfunction()
