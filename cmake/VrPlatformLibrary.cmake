# vr_platform_library(<name> EXPORT_BASE <base> SOURCES <file>... HEADERS <file>... LINK <target>...)
#
# One of the stand-ins for the editor's closed platform libraries: a versioned shared
# library with a generated export header (<base lower case>_export.h, macro
# <base>_EXPORT), its folder and that header on the include path, and its headers
# installed beside the library's own.
function(vr_platform_library name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "EXPORT_BASE" "SOURCES;HEADERS;LINK")
  string(TOLOWER "${ARG_EXPORT_BASE}_export.h" export_header)
  set(export_path ${CMAKE_CURRENT_BINARY_DIR}/include/${export_header})
  add_library(${name} SHARED ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES VERSION 1.0.0 SOVERSION 1)
  generate_export_header(${name} BASE_NAME ${ARG_EXPORT_BASE} EXPORT_FILE_NAME ${export_path})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/VrFetcher>)
  target_link_libraries(${name} PUBLIC ${ARG_LINK})
  install(FILES ${ARG_HEADERS} ${export_path} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VrFetcher COMPONENT Devel)
endfunction()
