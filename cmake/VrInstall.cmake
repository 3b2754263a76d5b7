# Installation: the shared library with its two platform libraries, the public
# headers under include/VrFetcher, a CMake package (find_package(VrFetcher)) with
# namespaced targets, and a pkg-config file.
include(CMakePackageConfigHelpers)

set(VR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VrFetcher)
set(VR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/VrFetcher)

# The public headers, named one by one: everything else in the module folders (the
# scheduler and its workers, the read deadline, the chapter scan, the speed curve, the
# JSON key check) is internal, stays out of the installed tree and is never included
# by a header listed here. scripts/check-install.sh compiles each of these alone
# against the installed package.
set(VR_PUBLIC_HEADERS
  Common/AesCodec.h
  Common/BasicObject.h
  Common/GpuModel.h
  Common/Helpers.h
  Common/RemoteObjectMonitor.h
  Common/RenderGeometry.h
  Common/Stopwatch.h
  Common/TagMonitor.h
  Common/TagPoint.h
  Common/ThreadDispatch.h
  Common/TryThread.h
  Common/WaitCondition.h
  Model/EditCommand.h
  Model/INode.h
  Model/JSAudioClip.h
  Model/JSBasicClip.h
  Model/JSNode.h
  Model/JSPicClip.h
  Model/JSVideoClip.h
  Model/NLListNode.h
  Model/NLMapNode.h
  Model/NLNodePtrs.h
  Model/NodeValues.h
  Model/PointStruct.h
  Model/TimelineFiles.h
  VeloranDec/AudioFrame.h
  VeloranDec/AudioSource.h
  VeloranDec/CAudioStreamInfo.h
  VeloranDec/CStreamInfo.h
  VeloranDec/CSubtitleStreamInfo.h
  VeloranDec/CVideoStreamInfo.h
  VeloranDec/ContainerInfo.h
  VeloranDec/FFAudioStreamReader.h
  VeloranDec/FFDecoder.h
  VeloranDec/FFDemuxer.h
  VeloranDec/FFStreamReader.h
  VeloranDec/FFVideoStreamReader.h
  VeloranDec/FFVobDemuxer.h
  VeloranDec/FrameWrapper.h
  VeloranDec/IAudioFrame.h
  VeloranDec/IVideoDecoder.h
  VeloranDec/IVideoFrame.h
  VeloranDec/QrcIOCallbacks.h
  VeloranDec/StreamInfoUtils.h
  VeloranDec/VideoFrame.h
  VeloranDec/VideoSource.h
  VeloranDec/VobChapter.h
  VeloranDec/VobEntryManager.h
  VeloranDec/Adapter/ChannelLayout.h
  VeloranDec/Adapter/FFAudioAdapter.h
  VeloranDec/Adapter/FFColourDescription.h
  VeloranDec/Adapter/FFVideoAdapter.h
  Projects/Fetcher/AudioSampleRequest.h
  Projects/Fetcher/IAVFetcher.h
  Projects/Fetcher/VideoThumbRequest.h)
foreach(header IN LISTS VR_PUBLIC_HEADERS)
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${VR_INSTALL_INCLUDEDIR}/${dir} COMPONENT Devel)
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

# The pkg-config file finds the prefix from its own place (${pcfiledir}), so it stays
# right whatever --prefix or DESTDIR the install is given. The library and include
# directories are relative to the prefix unless they were configured as absolute paths.
set(VR_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${VR_INSTALL_PKGCONFIGDIR}")
  set(VR_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH up /prefix/${VR_INSTALL_PKGCONFIGDIR} /prefix)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(VR_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(VR_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(VR_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/vrfetcher.pc.in ${PROJECT_BINARY_DIR}/vrfetcher.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vrfetcher.pc DESTINATION ${VR_INSTALL_PKGCONFIGDIR} COMPONENT Devel)

# API documentation, when Doxygen is available.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(DOXYGEN_PROJECT_NAME VrFetcher)
  set(DOXYGEN_EXTRACT_ALL NO)
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_EXCLUDE_PATTERNS */tests/* */build/* */bench/* */examples/*)
  # The API is what the installed headers say; internal headers and sources are not documented.
  list(TRANSFORM VR_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE vr_doc_inputs)
  # One comment over a \\name group (the value getters) documents each member in it.
  set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
  set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/README.md)
  set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
  set(DOXYGEN_FILE_PATTERNS *.h)
  doxygen_add_docs(docs ${vr_doc_inputs} ${PROJECT_SOURCE_DIR}/Platform ${PROJECT_SOURCE_DIR}/README.md
    COMMENT "API documentation")
endif()
