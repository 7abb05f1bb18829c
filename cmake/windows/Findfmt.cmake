# fmt without its compiled part, from the folder of script/windows-deps.
find_path(FMT_INCLUDE_DIR fmt/format.h REQUIRED)
if(NOT TARGET fmt::fmt)
  add_library(fmt::fmt INTERFACE IMPORTED)
  target_include_directories(fmt::fmt INTERFACE "${FMT_INCLUDE_DIR}")
  target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
set(fmt_FOUND TRUE)
