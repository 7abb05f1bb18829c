# The system's minizip. The include folder is minizip's own, so that <unzip.h> and <ioapi.h> are found.
find_package(ZLIB REQUIRED)
find_path(MINIZIP_INCLUDE_DIR unzip.h PATH_SUFFIXES minizip REQUIRED)
find_library(MINIZIP_LIBRARY NAMES minizip REQUIRED)
if(NOT TARGET Minizip::minizip)
  add_library(Minizip::minizip UNKNOWN IMPORTED)
  set_target_properties(Minizip::minizip PROPERTIES
    IMPORTED_LOCATION "${MINIZIP_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${MINIZIP_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES ZLIB::ZLIB)
endif()
set(Minizip_FOUND TRUE)
