# Places the compiler's runtime DLLs beside the programs: a Windows machine has none of them. KIVNST_RUNTIME_DLLS lists
# them.
set(KIVNST_RUNTIME_DLLS)
if(MINGW)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
      OUTPUT_VARIABLE runtime_dll OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${runtime_dll}")
      execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-sysroot
        OUTPUT_VARIABLE sysroot OUTPUT_STRIP_TRAILING_WHITESPACE)
      find_file(KIVNST_RUNTIME_${dll} ${dll} PATHS /usr/x86_64-w64-mingw32/lib /usr/x86_64-w64-mingw32/bin
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
      set(runtime_dll "${KIVNST_RUNTIME_${dll}}")
    endif()
    file(REAL_PATH "${runtime_dll}" runtime_dll)
    list(APPEND KIVNST_RUNTIME_DLLS "${runtime_dll}")
    foreach(folder "${KIVNST_BIN_DIR}" "${KIVNST_MAIL_CLIENT_DIR}")
      file(COPY "${runtime_dll}" DESTINATION "${folder}" FOLLOW_SYMLINK_CHAIN)
    endforeach()
  endforeach()
endif()
