# Registers test programs with ctest, which runs them under Wine by scripts/run-test.

# kivnst_add_test(NAME TARGET [TIMEOUT seconds] [LONG seconds] [SERIAL] [PROFILES] [ARGS argument...])
#   Runs a GoogleTest program. SERIAL: alone, for tests that change what all programs of the prefix share (the registry).
#   PROFILES: not beside others that, as this one, change the build's MAPISVC.INF or the mail profiles.
#   LONG: about how long it takes; of those that run at once the longest begin, so that none is left alone at the end.
#   It finds in its environment, as Windows paths: KIVNST_BIN and KIVNST_MAIL_CLIENT (where the build put the modules),
#   KIVNST_TEST_DATA (tests/data), KIVNST_PST_DATA (the fetched mail; may not be there) and KIVNST_TEST_TEMP (an empty
#   folder of its own, where it is started).
#
# kivnst_add_check(NAME TARGET [the same])
#   Runs a program whose exit code is the one result.
function(kivnst_register_test name target)
  cmake_parse_arguments(PARSE_ARGV 2 arg "SERIAL;PROFILES;CHECK" "TIMEOUT;LONG" "ARGS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "kivnst_add_test(${name}): unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_test(NAME ${name} COMMAND "${PROJECT_SOURCE_DIR}/scripts/run-test" "${PROJECT_SOURCE_DIR}"
    "${PROJECT_BINARY_DIR}" ${name} "$<TARGET_FILE:${target}>" ${arg_ARGS})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "KIVNST_DEPS_DIR=${KIVNST_DEPS_DIR};KIVNST_CHECK=${arg_CHECK}")
  if(arg_LONG)
    set_tests_properties(${name} PROPERTIES COST ${arg_LONG})
  endif()
  if(arg_SERIAL)
    set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
  endif()
  if(arg_PROFILES)
    set_tests_properties(${name} PROPERTIES RESOURCE_LOCK mail-profiles)
  endif()
endfunction()

function(kivnst_add_test name target)
  kivnst_register_test(${name} ${target} ${ARGN})
endfunction()

function(kivnst_add_check name target)
  kivnst_register_test(${name} ${target} CHECK ${ARGN})
endfunction()

# kivnst_add_compile_check(NAME EXPECTED COMPILER ARGUMENT...)
#   Runs the compiler and expects this part of an error message, or no error where it is empty.
function(kivnst_add_compile_check name expected)
  add_test(NAME ${name} COMMAND "${PROJECT_SOURCE_DIR}/scripts/run-compile-check" "${PROJECT_BINARY_DIR}" ${name}
    "${expected}" ${ARGN})
endfunction()

# kivnst_add_script_check(NAME COMMAND ARGUMENT...)
#   Runs a script of this machine, not under Wine, whose exit code is the one result.
function(kivnst_add_script_check name)
  kivnst_add_compile_check(${name} "" ${ARGN})
endfunction()

# kivnst_spare_optimising(TARGET)
#   For test code: nobody waits for it to run, but for it to compile. For a debugger there is the preset mingw-debug.
function(kivnst_spare_optimising target)
  if(KIVNST_MSVC_ABI)
    target_compile_options(${target} PRIVATE -O0)
  elseif(NOT MSVC)
    target_compile_options(${target} PRIVATE -O0 $<$<NOT:$<CONFIG:Debug>>:-g0>)
  endif()
endfunction()

# kivnst_compile_quickly(TARGET)
#   The same for programs of many tests over doubles, which all take one precompiled header.
function(kivnst_compile_quickly target)
  kivnst_spare_optimising(${target})
  target_precompile_headers(${target} REUSE_FROM tests_precompiled)
endfunction()

# kivnst_allow_bare_assertions(TARGET)
#   For programs with an assertion that stands bare after an `if`: GoogleTest's hold an `else` of their own, guarded,
#   which GCC warns of all the same.
function(kivnst_allow_bare_assertions target)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE -Wno-dangling-else)
  endif()
endfunction()

# kivnst_has_joining_threads(FILE...)
#   For sources with std::jthread, which libc++ 19 counts among what is experimental.
function(kivnst_has_joining_threads)
  if(KIVNST_MSVC_ABI)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_PRECOMPILE_HEADERS ON
      COMPILE_DEFINITIONS _LIBCPP_ENABLE_EXPERIMENTAL)
  endif()
endfunction()
