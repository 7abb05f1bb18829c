# Build options and the flags that every target of the project gets.
option(KORVANE_TESTS "Build the tests and the fuzz targets' replay programs" ON)
option(KORVANE_BENCH "Build the benchmarks" OFF)
option(KORVANE_FUZZ "Build the fuzz targets with libFuzzer (clang only)" OFF)
option(KORVANE_COVERAGE "Instrument for coverage" OFF)
option(KORVANE_WERROR "Treat warnings as errors" OFF)
set(KORVANE_LINKER "" CACHE STRING "The linker, as -fuse-ld= takes it; empty: the compiler's own")
set(KORVANE_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them: address,undefined or thread")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KORVANE_CCACHE ccache)
if(KORVANE_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KORVANE_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${KORVANE_CCACHE})
endif()

if(KORVANE_LINKER)
  add_link_options(-fuse-ld=${KORVANE_LINKER})
endif()

add_library(korvane_flags INTERFACE)
target_compile_options(korvane_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow)
if(KORVANE_WERROR)
  target_compile_options(korvane_flags INTERFACE -Werror)
endif()
# For tests, after korvane_flags: what a test sets up shows in what it checks.
add_library(korvane_test_flags INTERFACE)
target_compile_options(korvane_test_flags INTERFACE -Wno-unused-result)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 reports short strings, moved or concatenated, wrongly when it optimises fully.
  target_compile_options(korvane_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-maybe-uninitialized>
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Shadowing of a member by a constructor parameter is what GCC's -Wshadow leaves alone too.
  target_compile_options(korvane_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
endif()
# What nothing calls is left out where a link collects sections: the library, agentctl and the host.
add_compile_options($<$<CONFIG:Release>:-ffunction-sections> $<$<CONFIG:Release>:-fdata-sections>)
# The standard library's containers check their indices and what is asked of an empty one.
add_compile_definitions(_GLIBCXX_ASSERTIONS)
# Not in what ships of the room that every event goes through (korvane_room): docs/building.md has what it would cost.
set(KORVANE_PER_EVENT_OPTIONS $<$<CONFIG:Release>:-U_GLIBCXX_ASSERTIONS>)
if(NOT KORVANE_SANITIZE AND NOT KORVANE_COVERAGE)
  # The exported classes are not to be replaced from outside: their calls of each other stay what the compiler makes them.
  target_compile_options(korvane_flags INTERFACE -fstack-protector-strong -fno-semantic-interposition)
  if(WIN32)
    # The headers there know two levels. Stacks are probed page by page anyway.
    add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  else()
    add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=3>)
    list(APPEND KORVANE_PER_EVENT_OPTIONS $<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
    add_compile_options(-fcf-protection=full -fstack-clash-protection)
    # Debian's start-up objects do not say that they keep to the shadow stack, though they do: they only call and return.
    # Their _init is no branch target, so nothing says that of indirect branches.
    add_link_options(-Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,-z,shstk)
  endif()
endif()
if(KORVANE_SANITIZE)
  add_compile_options(-fsanitize=${KORVANE_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KORVANE_SANITIZE})
  if(KORVANE_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(KORVANE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(KORVANE_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
