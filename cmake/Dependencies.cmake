# What the programs around the library link, as targets: pff, sqlite3, gtest, gmock, CLI11::CLI11 and
# nlohmann_json::nlohmann_json. The library itself depends on none of them. One folder serves all build folders.
# KIVNST_MAPI_HEADERS_DIR in it has the corrected MAPI headers, in include/, and their notices.

set(KIVNST_DEPS_DIR "${PROJECT_SOURCE_DIR}/build/deps" CACHE PATH "Fetched and built third-party code")

# On Windows the 64-bit MAPI headers of the mail client are used, which need no correction. Elsewhere every compiler uses
# mingw-w64's.
if(NOT CMAKE_HOST_WIN32)
  execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/correct-mapi-headers" "${KIVNST_DEPS_DIR}"
    COMMAND_ERROR_IS_FATAL ANY)
  set(KIVNST_MAPI_HEADERS_DIR "${KIVNST_DEPS_DIR}/mapi-headers")
  if(KIVNST_MSVC_ABI)
    # System headers as well, in front of those that clang.cfg names.
    target_include_directories(kivnst_options INTERFACE "${KIVNST_MAPI_HEADERS_DIR}/include")
    target_compile_options(kivnst_options INTERFACE --system-header-prefix=mapi --no-system-header-prefix=mapi/)
  else()
    target_include_directories(kivnst_options SYSTEM INTERFACE "${KIVNST_MAPI_HEADERS_DIR}/include")
  endif()
endif()

if(KIVNST_BUILD_AROUND)
  execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/fetch-dependencies" "${KIVNST_DEPS_DIR}"
    COMMAND_ERROR_IS_FATAL ANY)

  # Of what is C++ the MSVC ABI has a library of its own, which is named last; of what is C it links the same.
  function(kivnst_imported_static name folder library)
    set(location "${KIVNST_DEPS_DIR}/${folder}/lib/${library}")
    if(KIVNST_MSVC_ABI AND ARGC EQUAL 4)
      set(location "${KIVNST_MSVC_ABI_DIR}/${ARGV3}")
    endif()
    add_library(${name} STATIC IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES
      IMPORTED_LOCATION "${location}"
      INTERFACE_INCLUDE_DIRECTORIES "${KIVNST_DEPS_DIR}/${folder}/include")
  endfunction()

  kivnst_imported_static(pff libpff libpff.a)
  target_link_libraries(pff INTERFACE advapi32)
  kivnst_imported_static(sqlite3 sqlite libsqlite3.a)
  # Held to the values that the library was compiled with.
  target_compile_definitions(sqlite3 INTERFACE SQLITE_OMIT_LOAD_EXTENSION SQLITE_THREADSAFE=1 SQLITE_DQS=0)
  foreach(name gtest gmock)
    if(KIVNST_MSVC_ABI)
      kivnst_imported_static(${name} googletest "" ${name}.lib)
    else()
      # Built where a test program needs it: what the demonstration runs does not.
      string(REGEX REPLACE "^g" "google" folder ${name})
      set(sources "/usr/src/googletest")
      add_library(${name} STATIC EXCLUDE_FROM_ALL "${sources}/${folder}/src/${name}-all.cc")
      target_include_directories(${name} SYSTEM PUBLIC "${KIVNST_DEPS_DIR}/googletest/include")
      target_include_directories(${name} PRIVATE "${sources}/googletest" "${sources}/googlemock")
      target_compile_options(${name} PRIVATE -O1 -g0 -w "-ffile-prefix-map=${sources}/=")
    endif()
  endforeach()
  if(MINGW)
    # The thousands of sections that test programs have take GNU ld minutes, lld a second.
    target_link_options(gtest INTERFACE -wrapper "${PROJECT_SOURCE_DIR}/scripts/link-with-lld")
  endif()
  if(KIVNST_MSVC_ABI)
    target_link_libraries(gmock INTERFACE gtest)
  else()
    target_link_libraries(gmock PUBLIC gtest)
  endif()

  function(kivnst_header_only name folder)
    add_library(${name} INTERFACE IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES "${KIVNST_DEPS_DIR}/${folder}/include")
  endfunction()

  kivnst_header_only(CLI11::CLI11 cli11)
  kivnst_header_only(nlohmann_json::nlohmann_json nlohmann-json)
endif()
