# Runs `zvkit info FILE [ARGS]` and passes only on a clean refusal: exit code 1 (not a signal, not 0) and a
# reason on stderr that starts with "zvkit info:".
#   cmake -DZVKIT=... -DFILE=... [-DARGS=...] -P expect_refusal.cmake
separate_arguments(extra UNIX_COMMAND "${ARGS}")
execute_process(COMMAND ${ZVKIT} info ${FILE} ${extra}
  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT result STREQUAL "1")
  message(FATAL_ERROR "expected exit code 1, got '${result}'\nstdout: ${out}\nstderr: ${err}")
endif()
if(NOT err MATCHES "^zvkit info: ")
  message(FATAL_ERROR "no reason on stderr: '${err}'")
endif()
message(STATUS "${err}")
