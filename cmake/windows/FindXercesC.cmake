# The static Xerces-C of script/windows-deps.
find_path(XercesC_INCLUDE_DIR xercesc/util/PlatformUtils.hpp REQUIRED)
find_library(XercesC_LIBRARY NAMES libxerces-c.a REQUIRED)
if(NOT TARGET XercesC::XercesC)
  add_library(XercesC::XercesC STATIC IMPORTED)
  set_target_properties(XercesC::XercesC PROPERTIES
    IMPORTED_LOCATION "${XercesC_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${XercesC_INCLUDE_DIR}")
endif()
set(XercesC_FOUND TRUE)
