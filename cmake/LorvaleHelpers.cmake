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

# lorvale_test(NAME source...): one GoogleTest program; each of its tests is a test of ctest.
function(lorvale_test name)
  add_executable(${name} ${ARGN})
  lorvale_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE LORVALE_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data"
      LORVALE_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE lorvale_test_support lorvale_internal GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()

# lorvale_fuzz(NAME source): with LORVALE_BUILD_FUZZ a libFuzzer program.  In every build with tests, a
# program that runs the target once over each file of fuzz/corpus/NAME, as the test fuzz.NAME.
function(lorvale_fuzz name source)
  set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  if(LORVALE_BUILD_FUZZ)
    add_executable(fuzz_${name} ${source})
    lorvale_target_defaults(fuzz_${name})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz_${name} PRIVATE lorvale_internal)
  endif()
  if(LORVALE_BUILD_TESTS)
    add_executable(replay_${name} ${source} ${PROJECT_SOURCE_DIR}/fuzz/ReplayMain.cpp)
    lorvale_target_defaults(replay_${name})
    target_link_libraries(replay_${name} PRIVATE lorvale_internal)
    add_test(NAME fuzz.${name} COMMAND replay_${name} ${corpus})
  endif()
endfunction()

# lorvale_bench(NAME source...): one Google Benchmark program.
function(lorvale_bench name)
  add_executable(${name} ${ARGN})
  lorvale_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE LORVALE_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE lorvale_internal benchmark::benchmark_main)
endfunction()
