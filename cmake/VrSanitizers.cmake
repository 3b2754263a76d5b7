# Sanitizer builds: VR_SANITIZE="address;undefined" or "thread".
if(VR_SANITIZE)
  string(REPLACE ";" "," _vr_san "${VR_SANITIZE}")
  add_compile_options(-fsanitize=${_vr_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_vr_san})
  message(STATUS "Sanitizers: ${_vr_san}")
endif()
