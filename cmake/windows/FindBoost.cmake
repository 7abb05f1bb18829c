# Boost's headers, from the folder of script/windows-deps.
find_path(BOOST_HEADERS boost/property_tree/ptree.hpp REQUIRED)
if(NOT TARGET Boost::headers)
  add_library(Boost::headers INTERFACE IMPORTED)
  target_include_directories(Boost::headers INTERFACE "${BOOST_HEADERS}")
endif()
set(Boost_FOUND TRUE)
