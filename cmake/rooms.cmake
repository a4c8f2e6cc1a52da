# add_room(TARGET FOLDER folder [EXCEPT source…] [ROOMS target…] [LIBRARIES target…])
#
# Makes a static library of a folder. Sources say #include "folder/header.h" everywhere, so the root
# as include path would let every room include every other one. Instead each room has an include
# path of its own, where each of its headers has a stand-in that includes the real one; what a room
# does not link it does not find.
function(add_room target)
  cmake_parse_arguments(arg "" "FOLDER" "EXCEPT;ROOMS;LIBRARIES" ${ARGN})
  set(folder ${PROJECT_SOURCE_DIR}/${arg_FOLDER})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${folder}/*.h)
  foreach(source IN LISTS arg_EXCEPT)
    list(REMOVE_ITEM sources ${folder}/${source})
  endforeach()

  set(include_path ${PROJECT_BINARY_DIR}/rooms/${target})
  foreach(header IN LISTS headers)
    file(CONFIGURE OUTPUT ${include_path}/${header}
      CONTENT "#include \"${PROJECT_SOURCE_DIR}/${header}\"\n")
  endforeach()

  add_library(${target} STATIC ${sources})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${include_path}> $<INSTALL_INTERFACE:include>)
  target_link_libraries(${target} PUBLIC ${arg_ROOMS} ${arg_LIBRARIES})
  uactask_compile_options(${target})
endfunction()
