# What `cmake --install` puts where, in two components, and the ZIP that CPack makes of the first:
#   helper       the program, the docs and the licences of what is linked into it
#   development  headers, libraries and the CMake package: find_package(uactask) gives uactask::core
include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY UACTASK_LIBRARIES)
get_property(folders GLOBAL PROPERTY UACTASK_LIBRARY_FOLDERS)
get_property(programs GLOBAL PROPERTY UACTASK_PROGRAMS)
set(package_folder lib/cmake/uactask)

install(TARGETS ${programs} EXPORT uactaskTargets RUNTIME DESTINATION bin COMPONENT helper)
install(FILES README.md DESTINATION share/doc/uactask COMPONENT helper)
install(DIRECTORY docs DESTINATION share/doc/uactask COMPONENT helper)

# The helper is linked statically, so these travel with it.
function(install_licence file name)
  if(EXISTS ${file})
    install(FILES ${file} DESTINATION share/doc/uactask/licences RENAME ${name} COMPONENT helper)
  else()
    message(WARNING "The package will lack ${name}: there is no ${file}.")
  endif()
endfunction()
if(MINGW)
  install_licence(${Boost_INCLUDE_DIRS}/../LICENSE_1_0.txt Boost.txt)
  install_licence(/usr/share/doc/gcc-mingw-w64-base/copyright GCC-runtime.txt)
  install_licence(/usr/share/doc/mingw-w64-common/copyright MinGW-w64-runtime.txt)
else()
  install_licence(${Boost_INCLUDE_DIRS}/../share/boost-filesystem/copyright Boost.txt)
endif()

install(TARGETS uactask_core ${libraries} EXPORT uactaskTargets ARCHIVE DESTINATION lib COMPONENT development)
foreach(folder IN LISTS folders)
  install(DIRECTORY ${folder} DESTINATION include/uactask COMPONENT development FILES_MATCHING PATTERN "*.h")
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/ DESTINATION include/uactask COMPONENT development OPTIONAL)
install(EXPORT uactaskTargets NAMESPACE uactask:: DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(cmake/uactaskConfig.cmake.in uactaskConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(uactaskConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/uactaskConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/uactaskConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME uactask-${PROJECT_VERSION}-win64)
set(CPACK_COMPONENTS_ALL helper)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
include(CPack)
