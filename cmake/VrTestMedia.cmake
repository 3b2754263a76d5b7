# Test media is generated with the ffmpeg command-line tool into one folder of the
# build tree (VR_TEST_MEDIA_DIR, shared by sanitizer builds through the cache) and
# kept there: a file that exists is not generated again.
#
#   vr_test_media(<file name> <ffmpeg arguments ...>)
#     runs `ffmpeg -y -nostdin -loglevel error <arguments> <dir>/<file name>`
#   vr_test_media_command(<file name> COMMAND <command ...> [DEPENDS <files ...>])
#     any other generator; @OUT@ in the command stands for the output path and
#     @DIR@ for the media folder.
#
# Every generated file joins the `test_media` target, which the tests depend on.

find_program(VR_FFMPEG ffmpeg REQUIRED)
set(VR_TEST_MEDIA_DIR "${CMAKE_BINARY_DIR}/test-media" CACHE PATH "Folder for generated test media")
file(MAKE_DIRECTORY ${VR_TEST_MEDIA_DIR})
set_property(GLOBAL PROPERTY VR_TEST_MEDIA_FILES "")
set_property(GLOBAL PROPERTY VR_TEST_MEDIA_TARGETS "")

# Deterministic output: no encoder/muxer version strings, no wall-clock metadata.
set(VR_FFMPEG_BITEXACT -fflags +bitexact -flags:v +bitexact -flags:a +bitexact -map_metadata -1)

# A custom command's output gets a build rule only from a target of the folder that
# declared it, so each media file has its own small target there; `test_media`
# depends on those targets, which works across folders.
function(_vr_register_media out name)
  set_property(GLOBAL APPEND PROPERTY VR_TEST_MEDIA_FILES ${out})
  string(MAKE_C_IDENTIFIER "${name}" id)
  add_custom_target(vr_media_${id} DEPENDS ${out})
  set_property(GLOBAL APPEND PROPERTY VR_TEST_MEDIA_TARGETS vr_media_${id})
endfunction()

function(vr_test_media name)
  set(out ${VR_TEST_MEDIA_DIR}/${name})
  get_property(known GLOBAL PROPERTY VR_TEST_MEDIA_FILES)
  if(out IN_LIST known)
    return()
  endif()
  add_custom_command(OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -DOUT=${out} -DFFMPEG=${VR_FFMPEG} "-DARGS=${ARGN}"
            -P ${PROJECT_SOURCE_DIR}/cmake/VrRunFfmpeg.cmake
    COMMENT "Generating test media ${name}" VERBATIM)
  _vr_register_media(${out} ${name})
endfunction()

function(vr_test_media_command name)
  cmake_parse_arguments(ARG "" "" "COMMAND;DEPENDS" ${ARGN})
  set(out ${VR_TEST_MEDIA_DIR}/${name})
  get_property(known GLOBAL PROPERTY VR_TEST_MEDIA_FILES)
  if(out IN_LIST known)
    return()
  endif()
  set(cmd)
  foreach(arg IN LISTS ARG_COMMAND)
    string(REPLACE "@OUT@" "${out}" arg "${arg}")
    string(REPLACE "@DIR@" "${VR_TEST_MEDIA_DIR}" arg "${arg}")
    list(APPEND cmd "${arg}")
  endforeach()
  set(deps)
  foreach(dep IN LISTS ARG_DEPENDS)
    if(IS_ABSOLUTE ${dep})
      list(APPEND deps ${dep})
    else()
      list(APPEND deps ${VR_TEST_MEDIA_DIR}/${dep})
    endif()
  endforeach()
  add_custom_command(OUTPUT ${out} COMMAND ${cmd} DEPENDS ${deps}
    WORKING_DIRECTORY ${VR_TEST_MEDIA_DIR}
    COMMENT "Generating test media ${name}" VERBATIM)
  _vr_register_media(${out} ${name})
endfunction()

# Call once after every test folder declared its media.
function(vr_finish_test_media)
  get_property(targets GLOBAL PROPERTY VR_TEST_MEDIA_TARGETS)
  add_custom_target(test_media ALL)
  if(targets)
    add_dependencies(test_media ${targets})
  endif()
endfunction()
