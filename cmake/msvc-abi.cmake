# Cross-compiles for 64-bit Windows and the MSVC C++ ABI with Debian's clang 19 and lld 19, against libc++, mingw-w64's
# headers and import libraries, and what runtime/msvc-abi gives in place of Visual Studio's runtime.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
# CMake looks at the compiler before it knows how to pass on a path with a blank, which the flags below may have.
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_C_COMPILER_TARGET})
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_AR llvm-ar-19 CACHE STRING "")
set(CMAKE_RANLIB llvm-ranlib-19 CACHE STRING "")
# GCC's tool makes Windows' resources in the form that lld joins with the manifest's; named so early, CMake looks for no
# other.
set(CMAKE_RC_COMPILER_INIT x86_64-w64-mingw32-windres)
set(CMAKE_RC_FLAGS_INIT "-O res")

# The flags of clang itself. The compiler cannot link before the runtime is built, so nothing is linked to try it.
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH kivnst_source_dir)
set(CMAKE_C_FLAGS_INIT "\"--config=${kivnst_source_dir}/runtime/msvc-abi/clang.cfg\"")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# The libraries are named by runtime/msvc-abi, not by the compiler in each object, nor by CMake.
set(CMAKE_MSVC_RUNTIME_LIBRARY "")
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "")
set(CMAKE_CXX_STANDARD_LIBRARIES "" CACHE STRING "")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
