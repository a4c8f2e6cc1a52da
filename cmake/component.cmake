# Functions that add the project's libraries and programs, each a folder with one job. A folder includes only its own
# headers and those of what it USES (cmake/check_includes.py checks that).
#
# Names of targets and library files begin with "uactask", so that they do not collide with those of a project that
# adds this one with add_subdirectory. What is added here is also installed and packed (cmake/package.cmake).

# uactask_library(name [FOLDER folder] [EXCEPT source…] [USES name…] [LINKS library…])
#
# Adds the static library uactask_<name>, exported as uactask::<name>, of the sources in its folder. The folder has the
# library's name unless FOLDER names another.
function(uactask_library name)
  cmake_parse_arguments(arg "" "FOLDER" "EXCEPT;USES;LINKS" FOLDER ${name} ${ARGN})
  set(target uactask_${name})
  uactask_sources(sources ${arg_FOLDER})
  foreach(source IN LISTS arg_EXCEPT)
    list(REMOVE_ITEM sources ${PROJECT_SOURCE_DIR}/${arg_FOLDER}/${source})
  endforeach()

  add_library(${target} STATIC ${sources})
  add_library(uactask::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:include/uactask>)
  list(TRANSFORM arg_USES PREPEND uactask_)
  target_link_libraries(${target} PUBLIC ${arg_USES} ${arg_LINKS})
  uactask_compile_options(${target})
  uactask_debug_symbols(${target})

  set_property(GLOBAL APPEND PROPERTY UACTASK_LIBRARIES ${target})
endfunction()

# uactask_program(name DESCRIPTION text MAX_SIZE bytes [SOURCES source…] [USES name…] [LINKS library…])
#
# Adds the program <name>, exported as uactask::<name>, of the SOURCES in the folder <name>, or of all sources there.
# Its entry point is wmain; it gets the manifest and the version. A test keeps its release build within MAX_SIZE.
function(uactask_program name)
  cmake_parse_arguments(arg "" "DESCRIPTION;MAX_SIZE" "SOURCES;USES;LINKS" ${ARGN})
  if(arg_SOURCES)
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${name}/ OUTPUT_VARIABLE sources)
  else()
    uactask_sources(sources ${name})
  endif()

  set(resources ${PROJECT_BINARY_DIR}/${name}.rc)
  uactask_resource_text(company "${UACTASK_COMPANY}")
  uactask_resource_text(description "${arg_DESCRIPTION}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/program.rc.in ${resources} @ONLY)
  set_property(SOURCE ${resources} PROPERTY OBJECT_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/program.manifest)

  add_executable(${name} ${sources} ${resources})
  add_executable(uactask::${name} ALIAS ${name})
  list(TRANSFORM arg_USES PREPEND uactask_)
  target_link_libraries(${name} PRIVATE ${arg_USES} ${arg_LINKS})
  uactask_executable_options(${name})
  uactask_debug_symbols(${name})
  uactask_separate_symbols(${name})
  if(MINGW)
    target_link_options(${name} PRIVATE -municode)
  else()
    target_link_options(${name} PRIVATE /MANIFEST:NO) # it is in the resources
  endif()
  set_property(TARGET ${name} PROPERTY UACTASK_MAX_SIZE ${arg_MAX_SIZE})
  set_property(GLOBAL APPEND PROPERTY UACTASK_PROGRAMS ${name})
endfunction()

# Escapes text for a quoted string in a resource script.
function(uactask_resource_text variable text)
  string(REPLACE "\\" "\\\\" text "${text}")
  string(REPLACE "\"" "\"\"" text "${text}")
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

function(uactask_sources variable folder)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()
