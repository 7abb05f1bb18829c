# What only the Windows build has: its find modules, flags and hardening.
list(PREPEND CMAKE_MODULE_PATH "${CMAKE_SOURCE_DIR}/cmake/windows")
# What was found in another folder of libraries does not count.
if(NOT KORVANE_FOUND_IN STREQUAL KORVANE_WINDOWS_DEPS)
  foreach(found FMT_INCLUDE_DIR CLI11_INCLUDE_DIR CURL_INCLUDE_DIR CURL_LIBRARY MINIZIP_INCLUDE_DIR MINIZIP_LIBRARY OPENSSL_INCLUDE_DIR
          OPENSSL_CRYPTO_LIBRARY OPENSSL_SSL_LIBRARY)
    unset(${found} CACHE)
  endforeach()
  set(KORVANE_FOUND_IN "${KORVANE_WINDOWS_DEPS}" CACHE INTERNAL "")
endif()

set(CMAKE_SHARED_LIBRARY_PREFIX "")
set(CMAKE_SHARED_MODULE_PREFIX "")
set(CMAKE_IMPORT_LIBRARY_PREFIX "")

# Windows 10 and Server 2016 are the oldest systems.
add_compile_definitions(WINVER=0x0A00 _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN NOMINMAX NOGDI UNICODE _UNICODE)

# The same sources give the same bytes, wherever they lie and whenever they are built.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.")
add_link_options(-Wl,--no-insert-timestamp)

# The runtime is linked in: beside the product stand no libraries but the system's.
add_link_options(-static)

# The compiler adds the library of the stack protector only when the linking call names it.
add_link_options(-fstack-protector-strong)

# Address-space randomisation with 64 bits, no execution of data. GCC has no control-flow guard for Windows.
add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)
