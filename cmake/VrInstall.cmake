# Installation: the shared library with its two platform libraries, the public
# headers under include/VrFetcher, a CMake package (find_package(VrFetcher)) with
# namespaced targets, and a pkg-config file.
include(CMakePackageConfigHelpers)

set(VR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VrFetcher)
set(VR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/VrFetcher)

# Headers of internal machinery (the scheduler, its workers and the preview cache) stay out of the
# installed tree; everything else in the module folders is public API.
set(VR_PRIVATE_HEADERS
  Projects/Fetcher/AVFetcher.h
  Projects/Fetcher/AVPicker.h
  Projects/Fetcher/AVPickerManager.h
  Projects/Fetcher/AudioPicker.h
  Projects/Fetcher/VideoPicker.h)
file(GLOB VR_PRIVATE_EXTRA CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  ${PROJECT_SOURCE_DIR}/Projects/Fetcher/*Scheduling*.h ${PROJECT_SOURCE_DIR}/Projects/Fetcher/PreviewCache*.h)
list(APPEND VR_PRIVATE_HEADERS ${VR_PRIVATE_EXTRA})

foreach(dir Common Model VeloranDec VeloranDec/Adapter Projects/Fetcher)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/${dir}/*.h)
  list(REMOVE_ITEM headers ${VR_PRIVATE_HEADERS})
  if(headers)
    list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/)
    install(FILES ${headers} DESTINATION ${VR_INSTALL_INCLUDEDIR}/${dir} COMPONENT Devel)
  endif()
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/include/vrfetcher_export.h DESTINATION ${VR_INSTALL_INCLUDEDIR} COMPONENT Devel)

install(TARGETS VrFetcher FFmpegJoint VeloranBase EXPORT VrFetcherTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Devel
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Devel
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
  INCLUDES DESTINATION ${VR_INSTALL_INCLUDEDIR})
install(EXPORT VrFetcherTargets NAMESPACE VrFetcher:: DESTINATION ${VR_INSTALL_CMAKEDIR} COMPONENT Devel)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VrFetcherConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VrFetcherConfig.cmake INSTALL_DESTINATION ${VR_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VrFetcherConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VrFetcherConfig.cmake ${PROJECT_BINARY_DIR}/VrFetcherConfigVersion.cmake
  DESTINATION ${VR_INSTALL_CMAKEDIR} COMPONENT Devel)

configure_file(${PROJECT_SOURCE_DIR}/cmake/vrfetcher.pc.in ${PROJECT_BINARY_DIR}/vrfetcher.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vrfetcher.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Devel)

# API documentation, when Doxygen is available.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(DOXYGEN_PROJECT_NAME VrFetcher)
  set(DOXYGEN_EXTRACT_ALL NO)
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_EXCLUDE_PATTERNS */tests/* */build/* */bench/* */examples/*)
  # Headers that are not installed are not part of the API.
  list(TRANSFORM VR_PRIVATE_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE DOXYGEN_EXCLUDE)
  # The API is what the headers say; sources are not documented.
  set(DOXYGEN_FILE_PATTERNS *.h)
  # One comment over a \\name group (the value getters) documents each member in it.
  set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
  set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/README.md)
  set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
  doxygen_add_docs(docs ${PROJECT_SOURCE_DIR}/Common ${PROJECT_SOURCE_DIR}/Model ${PROJECT_SOURCE_DIR}/VeloranDec
    ${PROJECT_SOURCE_DIR}/Projects ${PROJECT_SOURCE_DIR}/Platform ${PROJECT_SOURCE_DIR}/README.md COMMENT "API documentation")
endif()
