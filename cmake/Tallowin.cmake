# Build rules shared by every folder: the language, the warnings, and one function per kind of target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# -O3 buys nothing here: the time goes to the disk.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_compile_options(-Wall -Wextra -Werror $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>
                    $<$<COMPILE_LANGUAGE:CXX>:-Wshadow> $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Part of -Wconversion here, but not in gcc, where the tree has to be clean.
  add_compile_options(-Wno-sign-conversion)
endif()
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(TALLOWIN_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(TALLOWIN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  # Line tables are enough for a report.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -gline-tables-only")
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND TALLOWIN_SANITIZE)
  # Line tables are enough for a sanitizer's report and halve the time to link.
  add_compile_options(-g1 -Og)
endif()

find_program(TALLOWIN_CCACHE ccache)
if(TALLOWIN_CCACHE)
  # With these words it remembers what was compiled with a precompiled header too, and asks the
  # compiler for what a file includes instead of preprocessing it first.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_DEPEND=1
                                  CCACHE_SLOPPINESS=pch_defines,time_macros
                                  ${TALLOWIN_CCACHE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
  else()
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fpch-preprocess>)
  endif()
endif()

# tallowin_precompiled_headers(NAME headers ...): compiles the headers once; target_precompile_headers
# with REUSE_FROM NAME takes them. Every file still includes what it uses: clang-tidy reads it so.
function(tallowin_precompiled_headers name)
  set(empty ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  file(CONFIGURE OUTPUT ${empty} CONTENT "")
  add_library(${name} OBJECT ${empty})
  target_precompile_headers(${name} PRIVATE ${ARGN})
endfunction()

# tallowin_library(NAME): the folder's static library, target tallowin_NAME, of all sources in it and
# its rooms. Public headers are included by their path below src/, as in "disk/disk_device.h".
function(tallowin_library name)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp)
  list(FILTER sources EXCLUDE REGEX "/program/")
  list(TRANSFORM TALLOWIN_USES_${name} PREPEND tallowin_ OUTPUT_VARIABLE dependencies)
  if(sources)
    add_library(tallowin_${name} STATIC ${sources})
    target_include_directories(tallowin_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(tallowin_${name} PUBLIC ${dependencies})
    target_precompile_headers(tallowin_${name} REUSE_FROM tallowin_headers)
  else()
    add_library(tallowin_${name} INTERFACE)
    target_include_directories(tallowin_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(tallowin_${name} INTERFACE ${dependencies})
  endif()
endfunction()

# tallowin_test(NAME [libraries ...]): all *_test.cpp of the folder in one GoogleTest program.
# Each test becomes a CTest test, so a failure is named in the closing lines. Tests of folders that set
# the same TALLOWIN_TEST_LOCK run one at a time.
function(tallowin_test name)
  file(GLOB sources CONFIGURE_DEPENDS *_test.cpp)
  list(TRANSFORM ARGN PREPEND tallowin_ OUTPUT_VARIABLE libraries)
  add_executable(${name}_tests ${sources})
  target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name}_tests PRIVATE ${libraries} tallowin_test_support GTest::gtest_main)
  target_precompile_headers(${name}_tests REUSE_FROM tallowin_test_headers)
  set(lock)
  if(TALLOWIN_TEST_LOCK)
    set(lock RESOURCE_LOCK ${TALLOWIN_TEST_LOCK})
  endif()
  gtest_discover_tests(${name}_tests DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}." PROPERTIES ${lock}
                       TIMEOUT 600 SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endfunction()
