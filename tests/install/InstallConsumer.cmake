# Installs the build into a fresh prefix and moves the installed tree elsewhere, then
# builds and runs a small consumer twice: once found with find_package(zndvr), once with
# the flags pkg-config gives for zndvr. The consumer includes every installed header, so
# a public header that reaches a header that did not install fails here.
# Run with cmake -P and BUILD_DIR, WORK_DIR, SOURCE_DIR, LIBDIR and CXX defined.

function(run_step name)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${name} failed (${result}):\n${output}")
  endif()
  message(STATUS "${name}: ${output}")
  set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix "${WORK_DIR}/moved")
file(REMOVE_RECURSE "${WORK_DIR}")

run_step("install" ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/installed")
file(RENAME "${WORK_DIR}/installed" "${prefix}")

file(GLOB_RECURSE headers RELATIVE "${prefix}/include/zndvr" "${prefix}/include/zndvr/*")
list(LENGTH headers header_count)
message(STATUS "${header_count} headers installed")
set(unit "// Every installed header, as a consumer sees them.\n")
foreach(header IN LISTS headers)
  string(APPEND unit "#include \"${header}\"\n")
endforeach()
file(WRITE "${WORK_DIR}/AllHeaders.cpp" "${unit}")

run_step("configure with find_package" ${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/cmake-consumer"
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release
  -DALL_HEADERS=${WORK_DIR}/AllHeaders.cpp)
run_step("build with find_package" ${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-consumer")
run_step("run the find_package consumer" "${WORK_DIR}/cmake-consumer/consumer")

find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
run_step("pkg-config" ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig"
  ${PKG_CONFIG} --cflags --libs zndvr)
string(STRIP "${step_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run_step("build with pkg-config" ${CXX} -std=c++20 "${SOURCE_DIR}/main.cpp" "${WORK_DIR}/AllHeaders.cpp" ${flags}
  "-Wl,-rpath,${prefix}/${LIBDIR}" -o "${WORK_DIR}/pkg-config-consumer")
run_step("run the pkg-config consumer" "${WORK_DIR}/pkg-config-consumer")
