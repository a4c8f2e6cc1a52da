# Installs the built tree of `BUILD`, and configures, builds and runs the consumer with it in `WORK`.
foreach(command IN ITEMS
    "--install|${BUILD}|--prefix|${WORK}/prefix"
    "-S|${CMAKE_CURRENT_LIST_DIR}|-B|${WORK}/build|-G|${GENERATOR}|-DCMAKE_BUILD_TYPE=Release|-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}|-DCMAKE_PREFIX_PATH=${WORK}/prefix|-DCMAKE_FIND_ROOT_PATH=${WORK}/prefix"
    "--build|${WORK}/build|--config|Release")
  string(REPLACE "|" ";" command "${command}")
  execute_process(COMMAND ${CMAKE_COMMAND} ${command} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(GLOB_RECURSE consumer ${WORK}/build/consumer.exe)
execute_process(COMMAND ${EMULATOR} ${consumer} WORKING_DIRECTORY ${WORK} COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${WORK})
