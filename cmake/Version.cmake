# The version, which nst/Version.h holds, and the version resource of each module that is installed.

# kivnst_read_version(VARIABLE): "1.2.3" as the header says it. CMake runs again when the header changes.
function(kivnst_read_version variable)
  set(header "${CMAKE_CURRENT_SOURCE_DIR}/nst/Version.h")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
  set(numbers)
  foreach(part MAJOR MINOR PATCH)
    file(STRINGS "${header}" line REGEX "^#define KIVNST_VERSION_${part} [0-9]+$")
    if(NOT line)
      message(FATAL_ERROR "${header} does not define KIVNST_VERSION_${part}")
    endif()
    string(REGEX REPLACE ".* " "" number "${line}")
    list(APPEND numbers "${number}")
  endforeach()
  list(JOIN numbers "." version)
  set(${variable} "${version}" PARENT_SCOPE)
endfunction()

# kivnst_add_version(TARGET DESCRIPTION)
function(kivnst_add_version target description)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(file_type VFT_APP)
    set(file_name "${target}.exe")
  else()
    set(file_type VFT_DLL)
    set(file_name "${target}.dll")
  endif()
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}-version.rc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
  # What is installed is the same each time that it is linked; what debuggers need, names that is, lies in a file beside it.
  if(KIVNST_MSVC_ABI AND NOT KIVNST_ASAN)
    target_link_options(${target} PRIVATE
      LINKER:/Brepro LINKER:/debug "LINKER:/pdbaltpath:%_PDB%" "LINKER:/pdbsourcepath:C:\\kivnst"
      # GCC's libraries have sections of long names.
      LINKER:/ignore:longsections)
  endif()
endfunction()
