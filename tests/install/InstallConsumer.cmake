# Installs the build into a fresh prefix, then builds and runs a small consumer twice:
# once found with find_package(zndvr), once with the flags pkg-config gives for zndvr.
# Run with cmake -P and BUILD_DIR, WORK_DIR, SOURCE_DIR, LIBDIR and CXX defined.

function(run_step name)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${name} failed (${result}):\n${output}")
  endif()
  message(STATUS "${name}: ${output}")
  set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix "${WORK_DIR}/prefix")
file(REMOVE_RECURSE "${WORK_DIR}")

run_step("install" ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")

run_step("configure with find_package" ${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/cmake-consumer"
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release)
run_step("build with find_package" ${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-consumer")
run_step("run the find_package consumer" "${WORK_DIR}/cmake-consumer/consumer")

find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
run_step("pkg-config" ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig"
  ${PKG_CONFIG} --define-variable=prefix=${prefix} --cflags --libs zndvr)
string(STRIP "${step_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run_step("build with pkg-config" ${CXX} -std=c++20 "${SOURCE_DIR}/main.cpp" ${flags}
  "-Wl,-rpath,${prefix}/${LIBDIR}" -o "${WORK_DIR}/pkg-config-consumer")
run_step("run the pkg-config consumer" "${WORK_DIR}/pkg-config-consumer")
