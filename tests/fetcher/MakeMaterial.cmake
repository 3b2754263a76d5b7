# Builds a material folder: DIR/config.json and DIR/resource.rcc holding SOURCE as
# "tone.wav" under the prefix "fetchmat".
file(MAKE_DIRECTORY ${DIR})
file(WRITE ${DIR}/config.json "{\"rcc_prefix\": \"fetchmat\", \"source\": \"tone.wav\"}\n")
file(WRITE ${DIR}/resource.qrc
  "<RCC><qresource prefix=\"/fetchmat\"><file alias=\"tone.wav\">${SOURCE}</file></qresource></RCC>\n")
execute_process(COMMAND ${RCC} -binary ${DIR}/resource.qrc -o ${DIR}/resource.rcc RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "rcc failed: ${rc}")
endif()
file(REMOVE ${DIR}/resource.qrc)
