# 64-bit Windows with Debian's mingw-w64 GCC (posix threads).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
