# Installs the built tree into a scratch prefix and builds a small client
# against it twice: through find_package(ovkit) and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()

# The two components together make the developer's tree.
run(${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix} --component Runtime)
run(${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix} --component Development)

# 1. CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/packaging/client -B ${WORK_DIR}/cmake-client
    -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-client)
run(${WORK_DIR}/cmake-client/ovkit_client)

# 2. pkg-config.
file(GLOB_RECURSE pc_files ${prefix}/*/ovkit.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
execute_process(COMMAND pkg-config --cflags --libs ovkit
  OUTPUT_VARIABLE flags RESULT_VARIABLE rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know ovkit")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
get_filename_component(lib_dir ${pc_dir} DIRECTORY)
run(${CXX_COMPILER} -std=c++17 ${SOURCE_DIR}/tests/packaging/client/main.cpp ${flags}
    -Wl,-rpath,${lib_dir} -o ${WORK_DIR}/pc_client)
run(${WORK_DIR}/pc_client)
message(STATUS "installed tree builds clients through CMake and pkg-config")
