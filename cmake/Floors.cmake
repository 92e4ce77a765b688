# The libraries stand on floors: a library sees the headers of the floors below it and no others.
#
# All headers are included from one root, as in "os/iFile.h", so a common include directory would let a
# low floor include a high one. Instead each library gets an include directory of its own that holds
# nothing but a link to its folder, and hands it on to those that link it: an include of a higher floor
# does not compile.
#
#   fsys_floor(TARGET FOLDER OUTPUT LINKS ...)
#     TARGET   target name
#     FOLDER   folder below ole/
#     OUTPUT   name of the shared library, without lib and .so
#     LINKS    floors below
function(fsys_floor target folder output)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;PRIVATE" ${ARGN})
  set(root ${CMAKE_BINARY_DIR}/floors/${folder})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/ole/${folder} ${root}/${folder} SYMBOLIC)

  # Objects once, for the shared library and for tests that look behind the exported surface.
  add_library(${target}_objects OBJECT ${arg_SOURCES})
  target_include_directories(${target}_objects PUBLIC
    $<BUILD_INTERFACE:${root}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target}_objects PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE} fsys_warnings)

  add_library(${target} SHARED $<TARGET_OBJECTS:${target}_objects>)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${output} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${root}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE})
  # A sanitizer's runtime is in the program, so its symbols are undefined in a shared library.
  if(NOT FSYS_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()

  # The same objects in one archive, for tests of what is not exported.
  add_library(${target}_internal STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:${target}_objects>)
  target_include_directories(${target}_internal PUBLIC $<BUILD_INTERFACE:${root}>)
  target_link_libraries(${target}_internal PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE})
endfunction()
