# The runner as the script tests start it: on the home ${WORK}/home. Fails unless it exits with `expected` and its
# stdout and stderr together match every pattern; leaves them in `out` and `err`.
function(batch expected)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "MATCHES")
  execute_process(COMMAND ${BATCH} --home ${WORK}/home ${arg_UNPARSED_ARGUMENTS} RESULT_VARIABLE rc
                  OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL ${expected})
    message(FATAL_ERROR "${arg_UNPARSED_ARGUMENTS}: exit ${rc}, expected ${expected}\n${out}\n${err}")
  endif()
  foreach(pattern IN LISTS arg_MATCHES)
    if(NOT "${out}${err}" MATCHES "${pattern}")
      message(FATAL_ERROR "${arg_UNPARSED_ARGUMENTS}: no ${pattern} in\n${out}\n${err}")
    endif()
  endforeach()
  set(out "${out}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
endfunction()

# Fails unless the last run's --json summary holds `key`; leaves its value in the variable of that name.
function(summary key)
  string(JSON value ERROR_VARIABLE problem GET "${out}" ${key})
  if(problem)
    message(FATAL_ERROR "no ${key} in the summary: ${problem}\n${out}")
  endif()
  set(${key} "${value}" PARENT_SCOPE)
endfunction()
