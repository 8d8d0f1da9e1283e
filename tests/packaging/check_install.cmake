# Installs the built tree into a scratch prefix and builds a small client
# against it twice: through find_package(ovkit) and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(PREFIX ${WORK_DIR}/prefix)

# The two components together make the developer's tree.
foreach(component Runtime Development)
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${PREFIX} --component ${component}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "installing ${component} failed (${rc}):\n${out}")
  endif()
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/check_clients.cmake)
