# AddressSanitizer over everything that this project compiles, and over libc++ and GoogleTest alike, for the preset
# msvc-abi-asan: the interface target kivnst_asan. runtime/asan/README.md gives the reasons for the flags.
option(KIVNST_ASAN "Watch all memory with AddressSanitizer (for the MSVC C++ ABI by clang)" OFF)

if(KIVNST_ASAN)
  foreach(script fetch-llvm build-asan-runtime)
    execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/${script}" "${KIVNST_DEPS_DIR}" COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  set(asan_dir "${KIVNST_DEPS_DIR}/asan-runtime")
  set(asan_flags -fsanitize=address -g -gcodeview -fno-omit-frame-pointer -D_LIBCPP_INSTRUMENTED_WITH_ASAN=1
    "-fpass-plugin=${asan_dir}/catch_objects.so")
  set(KIVNST_MSVC_ABI_VARIANT asan ${asan_flags} -mllvm -asan-stack-dynamic-alloca=0)

  add_library(kivnst_asan INTERFACE)
  # Not the options of the directory: the start-up of a module runs before the runtime knows it.
  # Of what -g tells reports need lines alone.
  target_compile_options(kivnst_asan INTERFACE ${asan_flags} -gline-tables-only
    "SHELL:-mllvm -asan-stack-dynamic-alloca=0")
  target_compile_definitions(kivnst_asan INTERFACE KIVNST_ASAN)
  target_link_libraries(kivnst_asan INTERFACE "${asan_dir}/clang_rt.asan.lib")
  target_link_options(kivnst_asan INTERFACE "LINKER:/wholearchive:${asan_dir}/asan_thunk.lib" LINKER:/debug
    # GCC's libraries have sections of long names.
    LINKER:/ignore:longsections)
  # Most of the time goes into reading the same headers again.
  cmake_language(DEFER CALL set_target_properties kivnst_support kivnst_mapi KivNst ArchiveHost common olmapi32
    PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  foreach(folder "${KIVNST_BIN_DIR}" "${KIVNST_MAIL_CLIENT_DIR}")
    file(COPY "${asan_dir}/clang_rt.asan.dll" DESTINATION "${folder}")
  endforeach()
endif()
