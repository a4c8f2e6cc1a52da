# uactask_delay_load(target DLL function…): makes the program load the DLL when it first calls one of these functions,
# not when it starts. With MinGW this covers only the functions named here; with MSVC, all functions of the DLL.
function(uactask_delay_load target dll)
  if(MSVC)
    target_link_options(${target} PRIVATE /DELAYLOAD:${dll}.dll)
    target_link_libraries(${target} PRIVATE delayimp)
    return()
  endif()
  # Must be an object of the program itself: if it were in a library, the hook in the runtime's library would win.
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/delay_load_hook.cpp)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/delay_load/${target})
  set(library ${folder}/lib${dll}.a)
  string(REPLACE ";" "\n" functions "${ARGN}")
  file(CONFIGURE OUTPUT ${folder}/${dll}.def CONTENT "LIBRARY ${dll}.dll\nEXPORTS\n${functions}\n")
  # The import library's symbols hold its path as given here. Without folders it is the same everywhere.
  add_custom_command(OUTPUT ${library} DEPENDS ${folder}/${dll}.def VERBATIM WORKING_DIRECTORY ${folder}
    COMMAND ${CMAKE_DLLTOOL} --input-def ${dll}.def --dllname ${dll}.dll --output-delaylib lib${dll}.a)
  add_custom_target(${target}_delay_load_${dll} DEPENDS ${library})
  add_dependencies(${target} ${target}_delay_load_${dll})
  target_link_libraries(${target} PRIVATE ${library})
endfunction()
