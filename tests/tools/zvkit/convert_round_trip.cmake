# JSON -> binary -> JSON through `zvkit convert`, for a model and a configuration: the binary output equals
# the committed binary twin (fp16), and the JSON that comes back equals the JSON that went in, byte for byte.
# An fp32 detour gives the same JSON as well (the fixtures' weights are exact in half precision), with the
# input precision given or found.
#   cmake -DZVKIT=... -DDATA=.../tests/data -DWORK=<scratch dir> -P convert_round_trip.cmake
file(MAKE_DIRECTORY ${WORK})
function(run)
  execute_process(COMMAND ${ZVKIT} convert ${ARGN} RESULT_VARIABLE result ERROR_VARIABLE err OUTPUT_QUIET)
  if(NOT result STREQUAL "0")
    message(FATAL_ERROR "zvkit convert ${ARGN}: exit '${result}': ${err}")
  endif()
endfunction()
function(same a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${a} ${b} RESULT_VARIABLE different)
  if(different)
    message(FATAL_ERROR "${a} and ${b} differ")
  endif()
endfunction()

foreach(pair "tiny_model;zvmod" "tiny_cfg;zvcfgs")
  list(GET pair 0 name)
  list(GET pair 1 ext)
  run(${DATA}/models/${name}.json ${WORK}/${name}.${ext})
  same(${WORK}/${name}.${ext} ${DATA}/models/${name}.${ext})
  run(${WORK}/${name}.${ext} ${WORK}/${name}.back.json)
  same(${WORK}/${name}.back.json ${DATA}/models/${name}.json)
  run(${DATA}/models/${name}.json ${WORK}/${name}.32.${ext} --precision fp32)
  run(${WORK}/${name}.32.${ext} ${WORK}/${name}.32.json --input-precision fp32)
  same(${WORK}/${name}.32.json ${DATA}/models/${name}.json)
  # Without the flag the precision is found from the file.
  run(${WORK}/${name}.32.${ext} ${WORK}/${name}.found.json)
  same(${WORK}/${name}.found.json ${DATA}/models/${name}.json)
endforeach()
