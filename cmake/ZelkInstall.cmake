# cmake --install: headers, libraries, blocks under lib/zelk, a CMake package and zelk.pc. The tree
# may be moved afterwards; run paths and package files are relative to themselves. The components are
# the Debian packages of ZelkPackages.cmake.
include(CMakePackageConfigHelpers)

set(ZELK_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/zelk")

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/zelk" "${PROJECT_SOURCE_DIR}/vantrel/include/"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT libzelk-dev FILES_MATCHING PATTERN "*.h")

set(ZELK_LIBRARIES zelk)
get_target_property(imported vantrel IMPORTED)
if(NOT imported)
  list(APPEND ZELK_LIBRARIES vantrel)
endif()
foreach(library IN LISTS ZELK_LIBRARIES)
  install(TARGETS ${library} EXPORT zelkTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      COMPONENT lib${library}${PROJECT_VERSION_MAJOR} NAMELINK_COMPONENT libzelk-dev
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
endforeach()
install(EXPORT zelkTargets NAMESPACE zelk:: DESTINATION "${ZELK_PACKAGE_DIR}" COMPONENT libzelk-dev)

# The plug-ins among the targets of blocks/; the tools install themselves.
get_property(targets DIRECTORY "${PROJECT_SOURCE_DIR}/blocks" PROPERTY BUILDSYSTEM_TARGETS)
foreach(target IN LISTS targets)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "MODULE_LIBRARY")
    install(TARGETS ${target} LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/zelk"
      COMPONENT zelk-blocks)
  endif()
endforeach()

configure_package_config_file(cmake/zelkConfig.cmake.in "${PROJECT_BINARY_DIR}/zelkConfig.cmake"
  INSTALL_DESTINATION "${ZELK_PACKAGE_DIR}"
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_BINDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zelkConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/zelkConfig.cmake"
  "${PROJECT_BINARY_DIR}/zelkConfigVersion.cmake"
  "${PROJECT_SOURCE_DIR}/cmake/ZelkAddBlock.cmake"
  DESTINATION "${ZELK_PACKAGE_DIR}" COMPONENT libzelk-dev)

# zelk.pc finds its prefix from its own place.
file(RELATIVE_PATH ZELK_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/zelk.pc.in "${PROJECT_BINARY_DIR}/zelk.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/zelk.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
  COMPONENT libzelk-dev)
