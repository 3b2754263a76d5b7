# Runs ffmpeg into a temporary file and renames it, so an interrupted run never
# leaves a half-written file that later builds would take as finished.
get_filename_component(_ext ${OUT} EXT)
set(_tmp "${OUT}.partial${_ext}")
execute_process(COMMAND ${FFMPEG} -y -nostdin -loglevel error ${ARGS} ${_tmp} RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  file(REMOVE ${_tmp})
  message(FATAL_ERROR "ffmpeg failed (${_rc}) for ${OUT}")
endif()
file(RENAME ${_tmp} ${OUT})
