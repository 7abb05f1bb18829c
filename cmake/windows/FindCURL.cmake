# The static libcurl of script/windows-deps.
find_package(OpenSSL REQUIRED)
find_path(CURL_INCLUDE_DIR curl/curl.h REQUIRED)
find_library(CURL_LIBRARY NAMES libcurl.a REQUIRED)
if(NOT TARGET CURL::libcurl)
  add_library(CURL::libcurl STATIC IMPORTED)
  set_target_properties(CURL::libcurl PROPERTIES
    IMPORTED_LOCATION "${CURL_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${CURL_INCLUDE_DIR}"
    INTERFACE_COMPILE_DEFINITIONS CURL_STATICLIB
    INTERFACE_LINK_LIBRARIES "OpenSSL::SSL;OpenSSL::Crypto;crypt32;ws2_32;gdi32;bcrypt")
endif()
set(CURL_FOUND TRUE)
