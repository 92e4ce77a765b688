# Debian packages: cpack -G DEB in the build folder. scripts/package.sh makes those that are meant for others.
#
#   libfsys1      the component libraries
#   libfsysav1    the component av, where libfsysav is built
#   libfsys-dev   the component development
#   fsys-tools    the component tools
#   python3-fsys  the component python, where the module is built
#
# Whatever is installed belongs to one of these components.
set(FSYS_MAINTAINER "The fsys developers <fsys@fsys.invalid>" CACHE STRING "Maintainer of the Debian packages")
set(revision 1)
set(soname ${PROJECT_VERSION_MAJOR})
set(libraries_package libfsys${soname})
set(av_package libfsysav${soname})
set(development_package libfsys-dev)
set(tools_package fsys-tools)
set(python_package python3-fsys)
set(library_components libraries)
if(FSYS_AV)
  list(APPEND library_components av)
endif()
set(components ${library_components} development tools)
if(TARGET fsys_python)
  list(APPEND components python)
endif()
set(FSYS_PACKAGES)
foreach(component IN LISTS components)
  list(APPEND FSYS_PACKAGES ${${component}_package})
endforeach()

# Each package tells about itself in a folder of its own, which only packages need.
set(made ${CMAKE_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${made})
execute_process(COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/packaging/changelog OUTPUT_FILE ${made}/changelog.Debian.gz
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${made}/changelog.gz
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/changelog
  ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
foreach(component IN LISTS components)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright ${made}/changelog.Debian.gz ${made}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# Which package a program needs that was linked with one of the libraries, and since which version of it.
foreach(component IN LISTS library_components)
  get_property(outputs GLOBAL PROPERTY FSYS_LIBRARIES_${component})
  set(shlibs)
  foreach(output IN LISTS outputs)
    string(APPEND shlibs "lib${output} ${soname} ${${component}_package} (>= ${PROJECT_VERSION})\n")
  endforeach()
  file(WRITE ${made}/${component}/shlibs "${shlibs}")
endforeach()
file(WRITE ${made}/triggers "activate-noawait ldconfig\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME fsys)
set(CPACK_PACKAGE_CONTACT ${FSYS_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/PackedFiles.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${components})
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
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${made}/libraries/shlibs ${made}/triggers)
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "media file-system layer - shared libraries
${about}
This package holds the shared libraries.")
set(CPACK_DEBIAN_AV_PACKAGE_NAME ${av_package})
set(CPACK_DEBIAN_AV_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_AV_PACKAGE_CONTROL_EXTRA ${made}/av/shlibs ${made}/triggers)
set(CPACK_DEBIAN_AV_PACKAGE_DEPENDS "${libraries_package} (= ${PROJECT_VERSION}-${revision})")
set(CPACK_DEBIAN_AV_DESCRIPTION "media file-system layer - reading and writing with libavformat
${about}
This package holds the library that lets libavformat read and write media
files of fsys.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
list(TRANSFORM library_components REPLACE "(.+)" "\\1_package" OUTPUT_VARIABLE names)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
foreach(name IN LISTS names)
  list(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${${name}} (= ${PROJECT_VERSION}-${revision})")
endforeach()
list(JOIN CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
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
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${python_package})
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
# The native module is made for one version of Python.
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${libraries_package} (>= ${PROJECT_VERSION})")
if(TARGET fsys_python)
  get_target_property(minor fsys_python PYTHON_MINOR)
  math(EXPR next "${minor} + 1")
  string(APPEND CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    ", python3 (>= 3.${minor}~), python3 (<< 3.${next})")
endif()
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "media file-system layer - Python module
${about}
This package holds the module for scripts: locations, clips, reading,
recording, copying and recovery.")
include(CPack)
