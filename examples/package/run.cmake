# Configures, builds and runs this project in `WORK` three times: with uactask from the build in `BUILD`, installed, and
# with `SOURCE` as a folder and as fetched by CMake. `OPTIONS` are CMake's for that compiler and its libraries;
# `EMULATOR` is the command that starts programs (both separated by "|").
string(REPLACE "|" ";" options "${OPTIONS}")
string(REPLACE "|" ";" EMULATOR "${EMULATOR}")

# A copy of the toolchain file in another folder finds Boost by the prefix path alone.
if(TOOLCHAIN)
  configure_file(${TOOLCHAIN} ${WORK}/toolchain.cmake COPYONLY)
  list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${WORK}/toolchain.cmake)
endif()

# A project may have targets of these names.
file(WRITE ${WORK}/names.cmake
  "foreach(name corekit inifile fileop xmlstore tasks core client launcher bench tests)\n"
  "  add_library(\${name} INTERFACE)\nendforeach()\n")

# The publisher in the helper's resources, and part of it in UTF-16.
set(company "M\\b \"Pläyer\"")
set(company_part "4d005c0062002000220050006c00e40079006500720022000000")

function(use from folder config)
  execute_process(COMMAND ${CMAKE_COMMAND} --no-warn-unused-cli -S ${CMAKE_CURRENT_FUNCTION_LIST_DIR} -B ${WORK}/${folder} -G ${GENERATOR}
    ${options} -DCMAKE_UNITY_BUILD=ON -DCMAKE_BUILD_TYPE=${config} "-DCMAKE_PREFIX_PATH=${WORK}/prefix;${BOOST}"
    -DCMAKE_PROJECT_consumer_INCLUDE=${WORK}/names.cmake -DUACTASK_FROM=${from}
    "-DUACTASK_COMPANY=${company}" -DUACTASK_FOLDER=${SOURCE} -DFETCHCONTENT_SOURCE_DIR_UACTASK=${SOURCE}
    ERROR_VARIABLE remarks ECHO_ERROR_VARIABLE COMMAND_ERROR_IS_FATAL ANY)
  if(remarks)
    message(FATAL_ERROR "${from}: configuring must not warn, but it did:\n${remarks}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/${folder} --config ${config} ${ARGN}
    COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE helper ${WORK}/${folder}/uactask.exe)
  list(GET helper 0 helper)
  file(READ ${helper} bytes HEX)
  if(folder STREQUAL "source" AND NOT bytes MATCHES ${company_part})
    message(FATAL_ERROR "${from}: the helper's resources do not name the company")
  endif()
  if(ARGN)
    return()
  endif()
  file(GLOB_RECURSE program ${WORK}/${folder}/consumer.exe)
  get_filename_component(beside ${program} DIRECTORY)
  if(NOT EXISTS ${beside}/uactask.exe)
    message(FATAL_ERROR "${from}: the helper is not beside the program")
  endif()
  execute_process(COMMAND ${EMULATOR} ${program} WORKING_DIRECTORY ${WORK} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIG} --prefix ${WORK}/prefix
  COMMAND_ERROR_IS_FATAL ANY)
# Each header that is installed compiles in this project.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/consumer.cpp included REGEX "^#include \".*/")
list(TRANSFORM included REPLACE "^#include \"(.*)\"$" "\\1")
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix/include/uactask ${WORK}/prefix/include/uactask/*)
list(SORT included)
if(NOT installed STREQUAL included)
  message(FATAL_ERROR "installed: ${installed}\nincluded: ${included}")
endif()
if(TOOLCHAIN)
  set(ENV{CXXFLAGS} "-O2 -D_FORTIFY_SOURCE=2 -fstack-protector-strong") # as hardened applications are compiled
endif()
use(package installed ${CONFIG})
unset(ENV{CXXFLAGS})
file(REMOVE_RECURSE ${WORK}/prefix)
# Both use the same folder, so that nothing is compiled twice. Cross-compiled, they build the helper alone, without
# optimisation: the client has been compiled and linked into a program before.
if(TOOLCHAIN)
  set(CONFIG Debug)
  set(part --target uactask)
endif()
use(folder source ${CONFIG} ${part})
use(fetched source ${CONFIG} ${part})
file(REMOVE_RECURSE ${WORK})
