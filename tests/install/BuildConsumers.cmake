# cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_DIR=... -DCXX=... -DGENERATOR=... -P BuildConsumers.cmake
# Installs the built library into WORK_DIR/prefix and builds the consumer against that prefix alone:
# WORK_DIR/find-package/consumer with find_package, WORK_DIR/pkg-config/consumer with pkg-config.
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${output}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run("configuring with find_package" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/find-package
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)
run("building with find_package" ${CMAKE_COMMAND} --build ${WORK_DIR}/find-package)

file(GLOB_RECURSE pc_file ${prefix}/quillmere.pc)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
execute_process(COMMAND pkg-config --cflags --libs quillmere RESULT_VARIABLE result OUTPUT_VARIABLE flags
                ERROR_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pkg-config quillmere failed:\n${flags}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
file(MAKE_DIRECTORY ${WORK_DIR}/pkg-config)
# The find_package build picks the launcher up from the environment by itself.
run("building with pkg-config" $ENV{CMAKE_CXX_COMPILER_LAUNCHER} ${CXX} -std=c++20 -Wall -Wextra -Werror ${CONSUMER_DIR}/main.cpp
    -o ${WORK_DIR}/pkg-config/consumer ${flags})
