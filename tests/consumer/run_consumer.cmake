# Installs the built tree into a scratch prefix, then configures, builds and
# runs a tiny outside project that finds it with find_package(velmora).
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release
  "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(rc OR NOT out MATCHES "velmora 1.0.0.17 2022-7, 2 groups")
  message(FATAL_ERROR "the consumer did not run as expected: ${rc} ${out}")
endif()

# The installed tool and the installed-API program run as they are: their run
# paths find the installed libraries (no LD_LIBRARY_PATH).
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/velmora --version
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(rc OR NOT out MATCHES "^velmora 1\\.0\\.0")
  message(FATAL_ERROR "the installed velmora did not run: ${rc} ${out} ${err}")
endif()
set(sample ${SOURCE_DIR}/examples/assemblies/pins.glb)
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/velmora plan ${sample}
    --threads 2 -o ${WORK_DIR}/pins.json
  RESULT_VARIABLE rc ERROR_VARIABLE err)
if(rc OR NOT EXISTS ${WORK_DIR}/pins.json)
  message(FATAL_ERROR "the installed velmora could not plan ${sample}: ${rc} ${err}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH
    ${WORK_DIR}/build/plan_and_export ${sample} ${WORK_DIR}/pins.glb
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
file(READ ${WORK_DIR}/pins.json report)
string(JSON parts LENGTH "${report}" parts)
string(JSON contacts LENGTH "${report}" contacts)
if(rc OR NOT out STREQUAL "${parts} parts, ${contacts} contacts, ${parts} offsets, library lines\n"
   OR NOT EXISTS ${WORK_DIR}/pins.glb)
  message(FATAL_ERROR "the installed-API program did not run as expected: ${rc} '${out}' ${err}")
endif()
