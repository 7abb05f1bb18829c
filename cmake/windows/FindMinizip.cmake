# The static minizip of script/windows-deps over the static zlib of the cross compiler's packages.
find_path(MINIZIP_INCLUDE_DIR unzip.h PATH_SUFFIXES minizip REQUIRED)
find_library(MINIZIP_LIBRARY NAMES libminizip.a REQUIRED)
find_library(MINIZIP_ZLIB NAMES libz.a REQUIRED)
if(NOT TARGET Minizip::minizip)
  add_library(Minizip::minizip STATIC IMPORTED)
  set_target_properties(Minizip::minizip PROPERTIES
    IMPORTED_LOCATION "${MINIZIP_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${MINIZIP_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${MINIZIP_ZLIB}")
endif()
set(Minizip_FOUND TRUE)
