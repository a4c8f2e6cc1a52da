# What `cmake --install` installs, in two components that scripts/release packs:
#   programs     the programs, their docs, and the licences of what is linked into them
#   development  headers, libraries and the CMake package, which find_package(uactask) finds
include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY UACTASK_LIBRARIES)
get_property(programs GLOBAL PROPERTY UACTASK_PROGRAMS)
set(package_folder lib/cmake/uactask)
set(docs_folder share/doc/uactask)

add_custom_target(uactask_shipped DEPENDS ${libraries} ${programs})

install(TARGETS ${programs} EXPORT uactaskTargets RUNTIME DESTINATION bin COMPONENT programs)
string(REGEX MATCH "^[0-9]+" gcc_version "${CMAKE_CXX_COMPILER_VERSION}")
configure_file(cmake/package_readme.md.in package/README.md @ONLY)
configure_file(cmake/developers_readme.md.in package/developers_readme.md @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/package/README.md CHANGELOG.md SECURITY.md
  DESTINATION ${docs_folder} COMPONENT programs)
install(FILES docs/integration.md docs/uactl.md docs/formats.md docs/troubleshooting.md docs/progress.png
  docs/copy_example.cpp docs/xml_store_example.cpp DESTINATION ${docs_folder}/docs COMPONENT programs)
install(DIRECTORY examples DESTINATION ${docs_folder} COMPONENT programs
  FILES_MATCHING PATTERN "CMakeLists.txt" PATTERN "*.cpp")
install(FILES LICENSE DESTINATION ${docs_folder} COMPONENT programs OPTIONAL)

# Libraries are linked statically, so their licences must ship with the programs.
function(uactask_install_licence name file)
  if(EXISTS ${file})
    install(FILES ${file} DESTINATION share/doc/uactask/licences RENAME ${name}.txt COMPONENT programs)
  else()
    message(WARNING "The package lacks the licence of ${name}, because ${file} does not exist.")
  endif()
endfunction()
if(MINGW)
  get_filename_component(boost_prefix ${Boost_INCLUDE_DIRS} DIRECTORY)
  uactask_install_licence(Boost ${boost_prefix}/LICENSE_1_0.txt)
  uactask_install_licence(GCC-runtime /usr/share/doc/gcc-mingw-w64-base/copyright)
  uactask_install_licence(GPL-3 /usr/share/common-licenses/GPL-3) # to which the one above points
  uactask_install_licence(MinGW-w64-runtime /usr/share/doc/mingw-w64-common/copyright)
  if(TARGET uactl)
    uactask_install_licence(nlohmann-json /usr/share/doc/nlohmann-json3-dev/copyright)
  endif()
else()
  set(share ${Boost_INCLUDE_DIRS}/../share)
  uactask_install_licence(Boost ${share}/boost-filesystem/copyright)
  if(TARGET uactl)
    uactask_install_licence(nlohmann-json ${share}/nlohmann-json/copyright)
  endif()
endif()

install(TARGETS uactask_core ${libraries} EXPORT uactaskTargets ARCHIVE DESTINATION lib COMPONENT development)
# The headers that are not listed are internal.
foreach(header IN ITEMS
    corekit/text.h corekit/trace.h
    inifile/ini_file.h
    fileop/file_operator.h fileop/file_system.h fileop/jfile.h
    xmlstore/keyed_records.h xmlstore/xml_parse.h
    uactask/exit_codes.h uactask/operation_list.h uactask/task.h uactask/task_factory.h uactask/task_file.h
    uactask/task_file_op.h uactask/task_runner.h uactask/task_scheduler.h
    uaclient/uaclient.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION include/uactask/${folder} COMPONENT development)
endforeach()

install(EXPORT uactaskTargets NAMESPACE uactask:: DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(cmake/uactaskConfig.cmake.in uactaskConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(uactaskConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/uactaskConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/uactaskConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)
