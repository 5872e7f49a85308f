# Compiler settings that every target of this project shares, as the interface target kivnst_options.

option(KIVNST_BUILD_AROUND "Build the testbed, the sample host, the tools and the tests around the library" ON)
option(KIVNST_COVERAGE "Instrument the library for coverage" OFF)
option(KIVNST_SANITIZE "Have the library trap where its behaviour would be undefined" OFF)

add_library(kivnst_options INTERFACE)
target_include_directories(kivnst_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(kivnst_options INTERFACE
  UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 WINVER=0x0601
  # The headers else promise that no COM method throws, and the compiler believes it; a read-only folder's may.
  COM_STDMETHOD_CAN_THROW)

if(MSVC)
  target_compile_options(kivnst_options INTERFACE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /Zc:preprocessor
    # Exported classes derive from std::exception and hold counted pointers, both by design: the first has no data of
    # its own to disagree about, the second is one pointer.
    /wd4251 /wd4275)
else()
  target_compile_options(kivnst_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow=local -Wcast-qual -Wconversion -Wno-sign-conversion
    -Wno-unknown-pragmas
    # The PURE-virtual MAPI interfaces have no virtual destructor, by COM's design.
    -Wno-non-virtual-dtor
    # No path of the building machine gets into a binary or a log line.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=" "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=build/")
  # What is instrumented is the library alone: how much of a test runs tells nothing.
  set(instrumented "$<IN_LIST:$<TARGET_PROPERTY:NAME>,kivnst_support;kivnst_mapi;KivNst>")
  if(KIVNST_COVERAGE)
    # Many threads count at once in some tests.
    target_compile_options(kivnst_options INTERFACE "$<${instrumented}:--coverage;-fprofile-update=atomic;-O0>")
    target_link_options(kivnst_options INTERFACE "$<${instrumented}:--coverage>")
  endif()
  if(KIVNST_SANITIZE)
    # There is no runtime for Windows that could print what was wrong: the program ends by an illegal instruction there.
    target_compile_options(kivnst_options INTERFACE
      "$<${instrumented}:-fsanitize=undefined;-fsanitize-undefined-trap-on-error>")
  endif()
endif()
