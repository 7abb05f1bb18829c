# The static OpenSSL of script/windows-deps, with the system libraries under it.
find_path(OPENSSL_INCLUDE_DIR openssl/ssl.h REQUIRED)
find_library(OPENSSL_CRYPTO_LIBRARY NAMES libcrypto.a REQUIRED)
find_library(OPENSSL_SSL_LIBRARY NAMES libssl.a REQUIRED)
if(NOT TARGET OpenSSL::Crypto)
  add_library(OpenSSL::Crypto STATIC IMPORTED)
  set_target_properties(OpenSSL::Crypto PROPERTIES
    IMPORTED_LOCATION "${OPENSSL_CRYPTO_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "crypt32;ws2_32;gdi32;bcrypt")
  add_library(OpenSSL::SSL STATIC IMPORTED)
  set_target_properties(OpenSSL::SSL PROPERTIES
    IMPORTED_LOCATION "${OPENSSL_SSL_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES OpenSSL::Crypto)
endif()
set(OpenSSL_FOUND TRUE)
