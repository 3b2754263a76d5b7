# Packs a .qrc into a binary Qt resource file at OUT, creating OUT's folder first.
#   cmake -DRCC=<rcc> -DQRC=<file.qrc> -DOUT=<file.rcc> -P BuildRcc.cmake
get_filename_component(_dir ${OUT} DIRECTORY)
file(MAKE_DIRECTORY ${_dir})
execute_process(COMMAND ${RCC} -binary ${QRC} -o ${OUT} RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  file(REMOVE ${OUT})
  message(FATAL_ERROR "rcc failed (${_rc}) for ${QRC}")
endif()
