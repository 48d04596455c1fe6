# cpack -G DEB: Debian packages, one per component of the install. scripts/package makes and tries them.
get_target_property(imported vantrel IMPORTED)
if(imported OR NOT UNIX OR APPLE)
  return()  # another logging library is not ours to pack
endif()
set(CPACK_PACKAGE_VENDOR "zelk")
set(CPACK_PACKAGE_CONTACT "The zelk developers <zelk@zelk.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
# Blocks are built with the library: a package of one fits the same version of the other only.
set(same "(= ${PROJECT_VERSION})")

# debian_package(NAME SECTION SUMMARY TEXT [dependency...]); NAME is the component, too.
function(debian_package name section summary text)
  string(TOUPPER "${name}" key)
  list(JOIN ARGN ", " depends)
  foreach(setting IN ITEMS "PACKAGE_NAME=${name}" "PACKAGE_SECTION=${section}"
                           "PACKAGE_DEPENDS=${depends}" "DESCRIPTION=${summary}\n${text}")
    string(REGEX MATCH "^[^=]*" field "${setting}")
    string(LENGTH "${field}=" start)
    string(SUBSTRING "${setting}" ${start} -1 value)
    set(CPACK_DEBIAN_${key}_${field} "${value}" PARENT_SCOPE)
  endforeach()
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${name} PARENT_SCOPE)

  # What every Debian package brings; an install by hand goes without.
  set(doc "${PROJECT_BINARY_DIR}/packages/${name}")
  configure_file(cmake/debian/copyright "${doc}/copyright" COPYONLY)
  configure_file(cmake/debian/changelog.in "${doc}/changelog" @ONLY)
  install(FILES "${doc}/copyright" "${doc}/changelog" DESTINATION "share/doc/${name}"
    COMPONENT ${name} EXCLUDE_FROM_ALL)
  if(EXISTS "${PROJECT_SOURCE_DIR}/cmake/debian/${name}.overrides")
    install(FILES cmake/debian/${name}.overrides RENAME ${name}
      DESTINATION share/lintian/overrides COMPONENT ${name} EXCLUDE_FROM_ALL)
  endif()
endfunction()

set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)  # not those of the builder's umask

set(CPACK_COMPONENTS_ALL "")
debian_package(libzelk${PROJECT_VERSION_MAJOR} libs "audio stream-processing graphs, library"
  "zelk builds and runs graphs of audio blocks inside a process, each graph on a\nthread of its own."
  "libvantrel${PROJECT_VERSION_MAJOR} ${same}")
debian_package(libvantrel${PROJECT_VERSION_MAJOR} libs "logging library on plain write()"
  "vantrel writes log records to standard output, standard error or a file, one\nsystem call each.")
debian_package(libzelk-dev libdevel "audio stream-processing graphs, headers"
  "Headers, CMake package and pkg-config file of zelk and vantrel, for hosts and\nblocks of one's own."
  "libzelk${PROJECT_VERSION_MAJOR} ${same}" "libvantrel${PROJECT_VERSION_MAJOR} ${same}")
debian_package(zelk-tools sound "audio stream-processing graphs, console and host"
  "vosh talks to a process that uses zelk, zelk-host is such a process, and\nzelk-validate drives a block through its contract."
  "libzelk${PROJECT_VERSION_MAJOR} ${same}" "libvantrel${PROJECT_VERSION_MAJOR} ${same}")
debian_package(zelk-blocks sound "audio stream-processing graphs, stock blocks"
  "Blocks that zelk loads by name: files, FIFOs, signals, gain, mixing, conversion\nand what else was built."
  "libzelk${PROJECT_VERSION_MAJOR} ${same}" "libvantrel${PROJECT_VERSION_MAJOR} ${same}")

# What packages of other programs will depend on, and the linker's cache.
foreach(library IN ITEMS zelk vantrel)
  set(control "${PROJECT_BINARY_DIR}/packages/lib${library}${PROJECT_VERSION_MAJOR}.control")
  file(WRITE "${control}/shlibs" "lib${library} ${PROJECT_VERSION_MAJOR} lib${library}${PROJECT_VERSION_MAJOR} ${same}\n")
  file(WRITE "${control}/triggers" "activate-noawait ldconfig\n")
  string(TOUPPER "lib${library}${PROJECT_VERSION_MAJOR}" key)
  set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA "${control}/shlibs;${control}/triggers")
endforeach()
set(CPACK_DEBIAN_ZELK-TOOLS_PACKAGE_RECOMMENDS "zelk-blocks")
# Debian's manual pages and change logs are compressed.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/compress.cmake")
include(CPack)
