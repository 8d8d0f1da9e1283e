# Builds the small client in tests/packaging/client twice, through
# find_package(ovkit) and through pkg-config, and runs both.
# Arguments: -DSOURCE_DIR -DWORK_DIR -DGENERATOR -DCXX_COMPILER, and
# -DPREFIX=<installed tree> to use that tree; without PREFIX the library is
# looked for where the system keeps it (an installed package).
# Included by check_install.cmake, run on its own by check_deb.cmake.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()

# 1. CMake package.
set(prefix_args)
if(PREFIX)
  set(prefix_args -DCMAKE_PREFIX_PATH=${PREFIX})
endif()
file(REMOVE_RECURSE ${WORK_DIR}/cmake-client)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/client -B ${WORK_DIR}/cmake-client
    -G ${GENERATOR} ${prefix_args} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-client)
run(${WORK_DIR}/cmake-client/ovkit_client)

# 2. pkg-config. An installed tree is found through PKG_CONFIG_PATH and the
# client runs with the tree's library directory as its run path; a package's
# files lie where pkg-config and the loader look anyway.
set(link_args)
if(PREFIX)
  file(GLOB_RECURSE pc_files ${PREFIX}/*/ovkit.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  get_filename_component(lib_dir ${pc_dir} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  set(link_args -Wl,-rpath,${lib_dir})
else()
  unset(ENV{PKG_CONFIG_PATH})
endif()
execute_process(COMMAND pkg-config --cflags --libs ovkit
  OUTPUT_VARIABLE flags RESULT_VARIABLE rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know ovkit")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX_COMPILER} -std=c++17 ${SOURCE_DIR}/tests/packaging/client/main.cpp ${flags}
    ${link_args} -o ${WORK_DIR}/pc_client)
run(${WORK_DIR}/pc_client)
message(STATUS "clients build and run through CMake and pkg-config")
