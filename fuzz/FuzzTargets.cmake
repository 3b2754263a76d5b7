# The fuzz targets' work as a library: linked into the libFuzzer programs of this
# folder and into the regression test that replays saved inputs (tests/harden).
if(NOT TARGET VrFuzzTargets)
  add_library(VrFuzzTargets STATIC
    ${CMAKE_CURRENT_LIST_DIR}/InMemoryResource.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MediaFuzzing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SourceFuzzing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TimelineFuzzing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Utf8Fuzzing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Silence.cpp)
  target_include_directories(VrFuzzTargets PUBLIC ${CMAKE_CURRENT_LIST_DIR})
  # The internal classes are reached through the static build of the library.
  if(TARGET VrFetcherTesting)
    target_link_libraries(VrFuzzTargets PUBLIC VrFetcherTesting)
  else()
    target_link_libraries(VrFuzzTargets PUBLIC VrFetcherObjects)
  endif()
endif()
