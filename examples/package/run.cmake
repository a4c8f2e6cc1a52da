# Installs what was built in `BUILD`, and configures, builds and runs the consumer with it in `WORK`.
if(WIN32) # vcpkg's libraries, already built, and the runtime that they were built for
  set(native "|-DVCPKG_MANIFEST_MODE=OFF|-DVCPKG_INSTALLED_DIR=${BUILD}/vcpkg_installed|-DVCPKG_TARGET_TRIPLET=x64-windows-static|-DCMAKE_MSVC_RUNTIME_LIBRARY=MultiThreaded")
endif()
foreach(command IN ITEMS
    "--install|${BUILD}|--config|${CONFIG}|--prefix|${WORK}/prefix"
    "-S|${CMAKE_CURRENT_LIST_DIR}|-B|${WORK}/build|-G|${GENERATOR}|-DCMAKE_BUILD_TYPE=${CONFIG}|-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}|-DCMAKE_PREFIX_PATH=${WORK}/prefix|-DCMAKE_FIND_ROOT_PATH=${WORK}/prefix${native}"
    "--build|${WORK}/build|--config|${CONFIG}")
  string(REPLACE "|" ";" command "${command}")
  execute_process(COMMAND ${CMAKE_COMMAND} ${command} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(GLOB_RECURSE consumer ${WORK}/build/consumer.exe)
execute_process(COMMAND ${EMULATOR} ${consumer} WORKING_DIRECTORY ${WORK} COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${WORK})
