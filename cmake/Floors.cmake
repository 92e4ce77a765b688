# The libraries stand on floors: a library sees the headers of the floors below it and no others.
#
# All headers are included from one root, as in "os/iFile.h", so a common include directory would let a
# low floor include a high one. Instead each library gets an include directory of its own that holds
# nothing but a link to its folder, and hands it on to those that link it: an include of a higher floor
# does not compile.
#
#   fsys_floor(TARGET FOLDER OUTPUT SOURCES ... HEADERS ... LINKS ...)
#     TARGET       target name; fsys::TARGET for those who use the installed package
#     FOLDER       folder below ole/
#     OUTPUT       name of the shared library, without lib and .so
#     COMPONENT    of the installation: libraries, unless named
#     DESCRIPTION  one line for pkg-config
#     HEADERS      public headers: names in FOLDER
#     LINKS        floors below
#     PRIVATE      what else it is linked with
function(fsys_floor target folder output)
  cmake_parse_arguments(arg "" "COMPONENT;DESCRIPTION" "SOURCES;HEADERS;LINKS;PRIVATE" ${ARGN})
  set(root ${CMAKE_BINARY_DIR}/floors/${folder})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/ole/${folder} ${root}/${folder} SYMBOLIC)

  # Objects once, for the shared library and for tests that look behind the exported surface.
  add_library(${target}_objects OBJECT ${arg_SOURCES})
  target_include_directories(${target}_objects PUBLIC $<BUILD_INTERFACE:${root}>)
  target_link_libraries(${target}_objects PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE} fsys_warnings)
  # The comparison of binary interfaces (scripts/abi-update.sh) reads types from the debug information.
  if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT FSYS_SANITIZE)
    target_compile_options(${target}_objects PRIVATE -g2)
  endif()

  add_library(${target} SHARED $<TARGET_OBJECTS:${target}_objects>)
  add_library(fsys::${target} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${output} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${root}> $<INSTALL_INTERFACE:${FSYS_INSTALL_HEADERS}>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE})

  # A library that has names of later versions than its first brings a script of its own.
  set(exports ${CMAKE_SOURCE_DIR}/ole/${folder}/exports.map)
  if(NOT EXISTS ${exports})
    set(exports ${CMAKE_BINARY_DIR}/floors/exports.map)
    configure_file(${CMAKE_SOURCE_DIR}/cmake/exports.map.in ${exports} @ONLY)
  endif()
  target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports})
  # A sanitizer's runtime is in the program, so its symbols are undefined in a shared library.
  if(NOT FSYS_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()

  if(NOT arg_COMPONENT)
    set(arg_COMPONENT libraries)
  endif()
  fsys_install_floor(${target} ${folder} ${output} ${arg_COMPONENT} "${arg_DESCRIPTION}" "${arg_HEADERS}" "${arg_LINKS}")

  # The same objects in one archive, for tests of what is not exported.
  add_library(${target}_internal STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:${target}_objects>)
  target_include_directories(${target}_internal PUBLIC $<BUILD_INTERFACE:${root}>)
  target_link_libraries(${target}_internal PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE})
endfunction()
