# Sanitizer builds: VR_SANITIZE="address;undefined" or "thread".
# VR_BUILD_FUZZERS (clang only) instruments everything for libFuzzer as well.
option(VR_BUILD_FUZZERS "Build the libFuzzer programs of fuzz/ (clang)" OFF)
if(VR_BUILD_FUZZERS AND NOT VR_SANITIZE)
  set(VR_SANITIZE "fuzzer-no-link;address;undefined")
endif()
if(VR_SANITIZE)
  string(REPLACE ";" "," _vr_san "${VR_SANITIZE}")
  add_compile_options(-fsanitize=${_vr_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_vr_san})
  message(STATUS "Sanitizers: ${_vr_san}")
endif()
