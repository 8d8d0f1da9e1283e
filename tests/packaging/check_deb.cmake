# Installs the Debian packages that cpack built (libovkit1 and libovkit-dev)
# with dpkg, builds and runs the small client against them through
# find_package(ovkit) and pkg-config, and removes both packages again,
# whether the clients worked or not. Copies of the packages left installed
# (by a run that was killed, say) are purged first. Needs root and dpkg;
# without them it says so, and ctest counts the test as skipped.
# Arguments: -DPACKAGE_DIR -DVERSION -DSOURCE_DIR -DWORK_DIR -DGENERATOR -DCXX_COMPILER
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)
find_program(DPKG dpkg)
if(NOT uid STREQUAL "0" OR NOT DPKG)
  message("ovkit-test-skipped: installing the Debian packages needs root and dpkg; run the test as root to check them")
  return()
endif()

set(packages libovkit-dev libovkit1)
set(files)
foreach(package IN LISTS packages)
  file(GLOB found ${PACKAGE_DIR}/${package}_${VERSION}_*.deb)
  list(LENGTH found count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected one ${package} ${VERSION} package in ${PACKAGE_DIR}, found: ${found}")
  endif()
  list(APPEND files ${found})
endforeach()

function(dpkg)
  execute_process(COMMAND ${DPKG} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "dpkg ${ARGN} failed (${rc}):\n${out}")
  endif()
endfunction()

dpkg(--purge ${packages})
execute_process(COMMAND ${DPKG} --install ${files}
  RESULT_VARIABLE install_rc OUTPUT_VARIABLE install_out ERROR_VARIABLE install_out)

# The clients run in a process of their own, so that a failure there still
# comes back here to remove the packages.
set(clients_rc 0)
if(install_rc EQUAL 0)
  file(REMOVE_RECURSE ${WORK_DIR})
  execute_process(COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${SOURCE_DIR} -DWORK_DIR=${WORK_DIR}
      -DGENERATOR=${GENERATOR} -DCXX_COMPILER=${CXX_COMPILER}
      -P ${CMAKE_CURRENT_LIST_DIR}/check_clients.cmake
    RESULT_VARIABLE clients_rc OUTPUT_VARIABLE clients_out ERROR_VARIABLE clients_out)
endif()

dpkg(--purge ${packages})
if(NOT install_rc EQUAL 0)
  message(FATAL_ERROR "dpkg --install ${files} failed (${install_rc}):\n${install_out}")
endif()
if(NOT clients_rc EQUAL 0)
  message(FATAL_ERROR "clients of the installed packages failed:\n${clients_out}")
endif()
message(STATUS "the packages install, build clients through CMake and pkg-config, and go again")
