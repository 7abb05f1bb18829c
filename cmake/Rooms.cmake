# How the project's targets are declared.

find_package(Threads REQUIRED)

# One static library a room: korvane_room(NAME SOURCES a.cpp ... DEPENDS room_or_library ...)
# makes korvane_NAME, with src/ as its one include root. COLD: no event passes through it, so what ships of it is
# compiled for size.
function(korvane_room name)
  cmake_parse_arguments(ARG "COLD" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(korvane_${name} STATIC ${ARG_SOURCES})
  if(ARG_COLD)
    target_compile_options(korvane_${name} PRIVATE $<$<CONFIG:Release>:-Os>)
  endif()
  target_include_directories(korvane_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(korvane_${name} PUBLIC ${ARG_DEPENDS} PRIVATE korvane_flags)
  if(name STREQUAL "logs")
    # Every event goes through it.
    target_compile_options(korvane_${name} PRIVATE ${KORVANE_PER_EVENT_OPTIONS})
  endif()
endfunction()

# A program of the project: korvane_program(NAME SOURCES ... DEPENDS ...)
function(korvane_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} korvane_flags)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
endfunction()

# A GoogleTest program, each of its cases a CTest test: korvane_test(NAME SOURCES ... DEPENDS ... [LABEL NAME] [LOCK THING] [COST SECONDS])
# Cases with one LOCK, in whatever program, run one after another.
# COST is about what the longest case takes, where that is seconds: CTest starts the costly ones first.
# The tests may include their helpers as "tests/support/...".
function(korvane_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT;LABEL;LOCK;COST" "SOURCES;DEPENDS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
    if(KORVANE_SANITIZE)
      set(ARG_TIMEOUT 240)
    endif()
  endif()
  korvane_program(${name} SOURCES ${ARG_SOURCES} DEPENDS ${ARG_DEPENDS} korvane_test_main)
  target_link_libraries(${name} PRIVATE korvane_test_flags)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  # The program's own watchdog (tests/support/watchdog.h) tells what hangs; CTest could only say that it does.
  math(EXPR limit "${ARG_TIMEOUT} / 2")
  if(KORVANE_SANITIZE OR WIN32)
    math(EXPR limit "${ARG_TIMEOUT} * 3 / 4")
  endif()
  set(properties TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT_MODIFICATION KORVANE_TEST_LIMIT=set:${limit})
  if(ARG_LABEL)
    list(APPEND properties LABELS ${ARG_LABEL})
  endif()
  if(ARG_COST)
    list(APPEND properties COST ${ARG_COST})
  endif()
  if(ARG_LOCK)
    list(APPEND properties RESOURCE_LOCK ${ARG_LOCK})
  endif()
  if(KORVANE_SANITIZE STREQUAL "thread")
    list(APPEND properties ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan-suppressions.txt")
  else()
    # An agent in a test's own process: a developer's tree may be his group's to change.
    list(APPEND properties ENVIRONMENT KORVANE_ALLOW_UNSAFE=1)
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${name}:" DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
endfunction()
