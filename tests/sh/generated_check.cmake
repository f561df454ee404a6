# The closed-form expansions of bands 5 to 15 are generated: regenerating
# them must give the committed header byte for byte.
find_program(PYTHON3 python3 REQUIRED)
set(fresh ${BINARY_DIR}/sh_closed_bands.regenerated.h)
execute_process(COMMAND ${PYTHON3} ${SOURCE_DIR}/tools/sh_gen.py ${fresh}
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "tools/sh_gen.py failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files
                        ${fresh} ${SOURCE_DIR}/src/sh/closed_bands.h
                RESULT_VARIABLE differ)
if(NOT differ EQUAL 0)
  message(FATAL_ERROR "src/sh/closed_bands.h differs from the output of tools/sh_gen.py; "
                      "regenerate it with: python3 tools/sh_gen.py src/sh/closed_bands.h")
endif()
