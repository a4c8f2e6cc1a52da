# uactask_delay_load(target DLL function…): the program loads the DLL when it first calls one of these
# functions, not when it starts. MinGW needs to be told them; all others are bound as usual.
function(uactask_delay_load target dll)
  if(MSVC)
    target_link_options(${target} PRIVATE /DELAYLOAD:${dll}.dll)
    target_link_libraries(${target} PRIVATE delayimp)
    return()
  endif()
  # An object of the program itself: of two libraries that define the hook the runtime's would win.
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/delay_load_hook.cpp)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/delay_load/${target})
  set(library ${folder}/lib${dll}.a)
  string(REPLACE ";" "\n" functions "${ARGN}")
  file(CONFIGURE OUTPUT ${folder}/${dll}.def CONTENT "LIBRARY ${dll}.dll\nEXPORTS\n${functions}\n")
  # The library's symbols hold its path as it is given here: without folders, so that it is the same everywhere.
  add_custom_command(OUTPUT ${library} DEPENDS ${folder}/${dll}.def VERBATIM WORKING_DIRECTORY ${folder}
    COMMAND ${CMAKE_DLLTOOL} --input-def ${dll}.def --dllname ${dll}.dll --output-delaylib lib${dll}.a)
  add_custom_target(${target}_delay_load_${dll} DEPENDS ${library})
  add_dependencies(${target} ${target}_delay_load_${dll})
  target_link_libraries(${target} PRIVATE ${library})
endfunction()
