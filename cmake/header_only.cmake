# uactask_header_only(target folder header): the target, and nothing that links it, includes a library
# that is headers alone, as <folder/header>.
function(uactask_header_only target folder header)
  find_path(${folder}_headers ${folder}/${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(include ${${folder}_headers})
  if(CMAKE_CROSSCOMPILING)
    # They lie among the build machine's own headers, which are wrong for the target.
    set(include ${PROJECT_BINARY_DIR}/header_only)
    file(MAKE_DIRECTORY ${include})
    file(CREATE_LINK ${${folder}_headers}/${folder} ${include}/${folder} SYMBOLIC)
  endif()
  target_include_directories(${target} SYSTEM PRIVATE ${include})
endfunction()
