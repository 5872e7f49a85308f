# What `cmake --install` gives: bin/, lib/ with the CMake package KivNst, include/kivnst/ and share/.

include(CMakePackageConfigHelpers)

set(kivnst_public_headers KivNst.h
  mapi/MapiBinding.h mapi/OpenMapiObject.h mapi/SPropValueVector.h
  nst/KivNstCore.h nst/NstAttach.h nst/NstMapiFolder.h nst/NstMapiSupport.h nst/NstMapiTable.h nst/NstMessage.h
  nst/NstMessageService.h nst/NstMsLogon.h nst/NstMsProvider.h nst/NstMsgStore.h nst/Olfi.h nst/ReadOnlyFolder.h
  nst/ReadOnlyMessage.h nst/StoreProviderRegistration.h nst/Version.h
  support/Binary.h support/CallWrapping.h support/ComPtr.h support/DateTimeSpan.h support/Die.h support/Exceptions.h
  support/Export.h support/Format.h support/Log.h support/MapiBuffer.h support/MapiErrors.h support/MapiHeaders.h
  support/MapiProperties.h support/Os.h support/OutlookAddIn.h support/StringW.h support/com_wrap.h)
file(GLOB kivnst_kit_headers RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/hostkit/*.h")
list(APPEND kivnst_public_headers ${kivnst_kit_headers})
list(TRANSFORM kivnst_public_headers PREPEND "${PROJECT_SOURCE_DIR}/" OUTPUT_VARIABLE header_files)
target_sources(KivNst PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${header_files})

# Which C++ ABI the installed library has; a host has to have the same.
if(MSVC OR KIVNST_MSVC_ABI)
  set(KIVNST_ABI msvc)
else()
  set(KIVNST_ABI mingw)
endif()

install(TARGETS KivNst EXPORT KivNstTargets FILE_SET HEADERS DESTINATION include/kivnst)
install(EXPORT KivNstTargets NAMESPACE KivNst:: DESTINATION lib/cmake/KivNst)
set(INCLUDE_MAPI include/kivnst-mapi)
set(RUNTIME_DIR bin)
set(NATVIS share/kivnst/KivNst.natvis)
configure_package_config_file(cmake/KivNstConfig.cmake.in "${PROJECT_BINARY_DIR}/KivNstConfig.cmake"
  INSTALL_DESTINATION lib/cmake/KivNst PATH_VARS INCLUDE_MAPI RUNTIME_DIR NATVIS)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KivNstConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KivNstConfig.cmake" "${PROJECT_BINARY_DIR}/KivNstConfigVersion.cmake"
  DESTINATION lib/cmake/KivNst)

if(KIVNST_BUILD_AROUND)
  foreach(program ArchiveHost archive-setup archive-probe archive-browser)
    install(PROGRAMS "$<TARGET_FILE:${program}>" DESTINATION bin)
  endforeach()
endif()
install(FILES ${KIVNST_RUNTIME_DLLS} DESTINATION bin)

install(FILES support/KivNst.natvis DESTINATION share/kivnst)
install(DIRECTORY examples DESTINATION share/kivnst)
install(FILES LICENSE CHANGELOG.md DESTINATION share/doc/kivnst)
install(FILES docs/deployment.md docs/errors.md docs/host-guide.md docs/log-reference.md docs/mapisvc-inf.md docs/msvc.md
  docs/properties.md docs/registration.md docs/verified.md docs/windows.md DESTINATION share/doc/kivnst/docs)

# What others hold the rights in, of what is installed: the corrected headers, what is linked in, the runtime DLLs.
if(NOT CMAKE_HOST_WIN32)
  install(DIRECTORY "${KIVNST_MAPI_HEADERS_DIR}/include/" DESTINATION include/kivnst-mapi FILES_MATCHING PATTERN "*.h")
  function(kivnst_install_notice file name)
    install(FILES "${file}" DESTINATION share/doc/kivnst/licences RENAME "${name}")
  endfunction()
  kivnst_install_notice("${KIVNST_MAPI_HEADERS_DIR}/COPYRIGHT" mingw-w64.txt)
  kivnst_install_notice(/usr/share/doc/libcli11-dev/copyright CLI11.txt)
  kivnst_install_notice(/usr/share/doc/nlohmann-json3-dev/copyright nlohmann-json.txt)
  if(KIVNST_MSVC_ABI)
    kivnst_install_notice(/usr/share/doc/libc++-19-dev/copyright LLVM.txt)
  else()
    kivnst_install_notice(/usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright GCC.txt)
    kivnst_install_notice(/usr/share/common-licenses/GPL-3 GPL-3.txt)
  endif()
endif()
