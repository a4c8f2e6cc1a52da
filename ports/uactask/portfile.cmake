# An overlay port of the tree that it lies in: vcpkg install uactask --overlay-ports=ports
set(SOURCE_PATH "${CURRENT_PORT_DIR}/../..")

vcpkg_cmake_configure(SOURCE_PATH "${SOURCE_PATH}" OPTIONS
  -DUACTASK_TESTS=OFF -DUACTASK_BENCHMARK=OFF -DUACTASK_COMMAND=OFF -DUACTASK_WARNINGS_AS_ERRORS=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/uactask)
file(GLOB programs RELATIVE "${CURRENT_PACKAGES_DIR}/bin" "${CURRENT_PACKAGES_DIR}/bin/*.exe")
list(TRANSFORM programs REPLACE "\\.exe$" "")
vcpkg_copy_tools(TOOL_NAMES ${programs} AUTO_CLEAN)
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")

if(EXISTS "${SOURCE_PATH}/LICENSE")
  vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
else()
  set(VCPKG_POLICY_SKIP_COPYRIGHT_CHECK enabled)
endif()
