# What only the Windows build has: its find modules, flags and hardening.
list(PREPEND CMAKE_MODULE_PATH "${CMAKE_SOURCE_DIR}/cmake/windows")
# What was found in another folder of libraries does not count.
if(NOT KORVANE_FOUND_IN STREQUAL KORVANE_WINDOWS_DEPS)
  foreach(found FMT_INCLUDE_DIR CLI11_INCLUDE_DIR CURL_INCLUDE_DIR CURL_LIBRARY MINIZIP_INCLUDE_DIR MINIZIP_LIBRARY MINIZIP_ZLIB OPENSSL_INCLUDE_DIR
          OPENSSL_CRYPTO_LIBRARY OPENSSL_SSL_LIBRARY XercesC_INCLUDE_DIR XercesC_LIBRARY ZLIB_INCLUDE_DIR ZLIB_LIBRARY_RELEASE)
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

# The compiler adds the library of the stack protector only when the linking call names it. What ships has its
# own: korvane_stack_guard(TARGET)
add_link_options(-fstack-protector-strong)
function(korvane_stack_guard target)
  target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src/platform/stack_guard_win.cpp")
endfunction()

# Address-space randomisation with 64 bits, no execution of data. GCC has no control-flow guard for Windows.
add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)

# What the linker took from where, for the bill of materials: maps/TARGET.map
function(korvane_link_map target)
  file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/maps")
  target_link_options(${target} PRIVATE "LINKER:-Map=${CMAKE_BINARY_DIR}/maps/${target}.map")
endfunction()

# The version resource of a program or library: korvane_version_resource(TARGET "What it is")
function(korvane_version_resource target description)
  enable_language(RC)
  get_target_property(type ${target} TYPE)
  set(KORVANE_DESCRIPTION "${description}")
  set(KORVANE_FILE ${target})
  if(type STREQUAL "EXECUTABLE")
    set(KORVANE_FILE_TYPE 0x1)
    set(KORVANE_FILE_NAME ${target}.exe)
  else()
    set(KORVANE_FILE_TYPE 0x2)
    set(KORVANE_FILE_NAME ${target}.dll)
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/windows/version.rc.in" ${target}.rc @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
endfunction()

# The message resource of the Windows event viewer, made from the event catalogue: korvane_message_resource(TARGET)
function(korvane_message_resource target)
  enable_language(RC)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  find_program(KORVANE_WINDMC x86_64-w64-mingw32-windmc REQUIRED)
  set(catalogue "${PROJECT_SOURCE_DIR}/src/eventlog/catalogue.txt")
  set(generator "${PROJECT_SOURCE_DIR}/script/make-messages")
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/messages")
  file(MAKE_DIRECTORY "${folder}")
  add_custom_command(OUTPUT "${folder}/events.rc"
    BYPRODUCTS "${folder}/events.mc" "${folder}/events.h" "${folder}/MSG00409.bin"
    COMMAND Python3::Interpreter "${generator}" "${catalogue}" events.mc
    COMMAND "${KORVANE_WINDMC}" --unicode_in --unicode_out events.mc
    DEPENDS "${catalogue}" "${generator}" WORKING_DIRECTORY "${folder}" VERBATIM)
  target_sources(${target} PRIVATE "${folder}/events.rc")
  set_source_files_properties("${folder}/events.rc" PROPERTIES
    INCLUDE_DIRECTORIES "${folder}" OBJECT_DEPENDS "${catalogue}")
endfunction()

# The FIPS module beside the library, with the file that says what its bytes must be: fipsinstall has it check
# itself once here; without "install-status" in that file it checks itself on every machine at every load.
set(fips_files "${CMAKE_BINARY_DIR}/bin/fips.dll" "${CMAKE_BINARY_DIR}/bin/fipsmodule.cnf")
add_custom_command(OUTPUT ${fips_files}
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${CMAKE_BINARY_DIR}/bin"
  COMMAND "${CMAKE_COMMAND}" -E copy "${KORVANE_WINDOWS_DEPS}/fips/fips.dll" "${CMAKE_BINARY_DIR}/bin/fips.dll"
  COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} "${KORVANE_WINDOWS_DEPS}/fips/openssl.exe" fipsinstall -quiet
    -module ./fips.dll -out fipsmodule.cnf -provider_name fips -self_test_onload
  DEPENDS "${KORVANE_WINDOWS_DEPS}/fips/fips.dll" WORKING_DIRECTORY "${CMAKE_BINARY_DIR}/bin" VERBATIM)
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
add_custom_target(fips_module ALL DEPENDS ${fips_files})

# Tests that need the reference server take it, a Linux program, from a native build.
set(KORVANE_NATIVE_BUILD "${CMAKE_SOURCE_DIR}/build/demo" CACHE PATH "A native build with korvane-server and translate")
