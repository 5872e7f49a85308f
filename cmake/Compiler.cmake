# Compiler settings that every target of this project shares, as the interface target kivnst_options.

option(KIVNST_BUILD_AROUND "Build the testbed, the sample host, the tools and the tests around the library" ON)
option(KIVNST_COVERAGE "Instrument the library for coverage" OFF)
option(KIVNST_SANITIZE "Have the library trap where its behaviour would be undefined" OFF)

# The MSVC C++ ABI by clang's GNU-like driver; CMake's variable MSVC says that the command line is Visual Studio's.
set(KIVNST_MSVC_ABI OFF)
if(NOT MSVC AND CMAKE_CXX_SIMULATE_ID STREQUAL "MSVC")
  set(KIVNST_MSVC_ABI ON)
  # The C++ libraries of others, compiled for it; a variant has a name and flags of its own (scripts/fetch-msvc-abi).
  set(KIVNST_MSVC_ABI_VARIANT "" CACHE STRING "Name and flags of a variant of the MSVC ABI build")
  set(KIVNST_MSVC_ABI_DIR "${KIVNST_DEPS_DIR}/msvc-abi")
  if(KIVNST_MSVC_ABI_VARIANT)
    list(GET KIVNST_MSVC_ABI_VARIANT 0 variant)
    string(APPEND KIVNST_MSVC_ABI_DIR "-${variant}")
  endif()
endif()

# What stands around the library is compiled several files at a time, for most of the time goes into reading the same
# headers again. What is defined in one file alone needs another name than what the others define.
option(KIVNST_COMPILE_TOGETHER "Compile several files of the programs around the library as one" ON)
function(kivnst_compile_together)
  set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ${KIVNST_COMPILE_TOGETHER} UNITY_BUILD_BATCH_SIZE 8)
endfunction()

add_library(kivnst_options INTERFACE)
target_include_directories(kivnst_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(kivnst_options INTERFACE
  UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 WINVER=0x0601
  # The headers else promise that no COM method throws, and the compiler believes it; a read-only folder's may.
  COM_STDMETHOD_CAN_THROW)

if(MSVC)
  target_compile_options(kivnst_options INTERFACE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /Zc:preprocessor
    # Exported classes derive from std::exception and hold counted pointers, both by design: the first is the same for
    # every host of the same C++ ABI, the second is one pointer.
    /wd4251 /wd4275)
elseif(KIVNST_MSVC_ABI)
  # What Visual Studio warns of at /W4, where clang has an equal.
  target_compile_options(kivnst_options INTERFACE
    -Wall -Wextra -Werror
    -Wmicrosoft                        # what the standard does not have and Visual Studio takes
    -Wc++11-narrowing                  # C4838
    -Wshorten-64-to-32                 # C4267, C4244: a size in fewer bits
    -Wimplicit-int-conversion -Wimplicit-float-conversion -Wfloat-conversion # C4242, C4244
    -Wliteral-conversion -Wconstant-conversion # C4305, C4309
    -Wsign-compare                     # C4018, C4389
    -Wint-to-pointer-cast -Wpointer-to-int-cast # C4311, C4312
    -Wunused-parameter -Wunused-variable -Wunused-but-set-variable -Wunused-function -Wunused-label # C4100, C4189, C4505
    -Wshadow -Wshadow-field            # C4456 to C4459
    -Wsometimes-uninitialized -Wconditional-uninitialized # C4701, C4703
    -Wunreachable-code                 # C4702
    -Widiomatic-parentheses            # C4706
    -Wformat                           # C4473, C4477
    -Wdeprecated-declarations          # C4996, with what runtime/msvc-abi/Deprecated.h declares
    -Wimplicit-fallthrough             # C5262
    -Wextra-semi -Wzero-length-array -Wflexible-array-extensions # C4200
    # Not asked for:
    # -Wsign-conversion (C4245): gives each ULONG flag that meets an int constant; C4245 itself only a negative constant,
    # which -Wconstant-conversion and -Wsign-compare find.
    # -Wgnu-anonymous-struct, -Wnested-anon-types (C4201): the platform's own headers, which Visual Studio excuses.
    # -Wpadded (C4324): here of structures with alignas alone, of which there are none in the library.
    # C4127 (a condition that is constant), C4714, C4512: clang has none.
    "SHELL:-include \"${PROJECT_SOURCE_DIR}/runtime/msvc-abi/Deprecated.h\""
    # No path of the building machine gets into a binary or a log line.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=" "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=build/"
    "-ffile-prefix-map=${KIVNST_DEPS_DIR}/=deps/")
  if(NOT KIVNST_ASAN)
    # Calls by a pointer are guarded (runtime/msvc-abi/LoadConfig.cpp).
    target_compile_options(kivnst_options INTERFACE "SHELL:-Xclang -cfguard")
    # Of what is installed the symbols know lines, too.
    set(installed "kivnst_support;kivnst_mapi;KivNst;ArchiveHost;common;tools_common;archive_setup;archive_browser"
      "archive-setup;archive-probe;archive-browser")
    target_compile_options(kivnst_options INTERFACE
      "$<$<IN_LIST:$<TARGET_PROPERTY:NAME>,${installed}>:-gline-tables-only;-gcodeview;-gno-codeview-command-line;-ffile-compilation-dir=.>")
  endif()
else()
  target_compile_options(kivnst_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow=local -Wcast-qual -Wconversion -Wno-sign-conversion
    -Wno-unknown-pragmas
    # The PURE-virtual MAPI interfaces have no virtual destructor, by COM's design.
    -Wno-non-virtual-dtor
    # No path of the building machine gets into a binary or a log line.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=" "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=build/")
  # As the linker does by itself, but for the time of linking, which would make each build another one.
  target_link_options(kivnst_options INTERFACE
    LINKER:--dynamicbase,--high-entropy-va,--nxcompat,--no-insert-timestamp)
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

if(KIVNST_ASAN)
  if(NOT KIVNST_MSVC_ABI)
    message(FATAL_ERROR "KIVNST_ASAN is for the MSVC C++ ABI by clang alone (preset msvc-abi-asan).")
  endif()
  target_link_libraries(kivnst_options INTERFACE kivnst_asan)
endif()
