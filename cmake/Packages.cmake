# Debian packages: cpack -G DEB in the build folder. scripts/package.sh makes those that are meant for others.
#
#   libfsys1      the component libraries
#   libfsys-dev   the component development
#   fsys-tools    the component tools
#
# Whatever is installed belongs to one of these components.
set(FSYS_MAINTAINER "The fsys developers <fsys@fsys.invalid>" CACHE STRING "Maintainer of the Debian packages")
set(revision 1)
set(soname ${PROJECT_VERSION_MAJOR})
set(libraries_package libfsys${soname})
set(development_package libfsys-dev)
set(tools_package fsys-tools)

# Each package tells about itself in a folder of its own, which only packages need.
set(made ${CMAKE_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${made})
execute_process(COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/packaging/changelog OUTPUT_FILE ${made}/changelog.Debian.gz
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${made}/changelog.gz
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/changelog
  ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
foreach(component libraries development tools)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright ${made}/changelog.Debian.gz ${made}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# Which package a program needs that was linked with one of the libraries, and since which version of it.
get_property(outputs GLOBAL PROPERTY FSYS_LIBRARIES)
set(shlibs)
foreach(output IN LISTS outputs)
  string(APPEND shlibs "lib${output} ${soname} ${libraries_package} (>= ${PROJECT_VERSION})\n")
endforeach()
file(WRITE ${made}/shlibs "${shlibs}")
file(WRITE ${made}/triggers "activate-noawait ldconfig\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME fsys)
set(CPACK_PACKAGE_CONTACT ${FSYS_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
# Below /usr the loader looks by itself; a path inside a file there would only be in the way.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/RemoveLibraryPaths.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libraries development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_SOURCE fsys)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/ole)

# Lines of at most 79 characters; cpack puts a space before each, and a dot into empty ones.
set(about "fsys is the media file-system layer of a video editing and playback
application. It knows where the media of each clip is, full resolution or
proxy, and which drives and folders hold media; it reads and writes media
fast enough for real time.
")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME ${libraries_package})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${made}/shlibs ${made}/triggers)
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "media file-system layer - shared libraries
${about}
This package holds the shared libraries.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${libraries_package} (= ${PROJECT_VERSION}-${revision})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "media file-system layer - development files
${about}
This package holds what is needed to build programs with the libraries:
headers, the CMake package and files for pkg-config.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${libraries_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "media file-system layer - command line
${about}
This package holds the fsys command: media locations, clips, playback and
recording at a given rate, copies with verification, recovery.")
include(CPack)
