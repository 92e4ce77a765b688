# What cmake --install puts where, in components: libraries, av (the library that brings libavformat along), development
# and tools. An installed tree can be moved: nothing in it holds an absolute path, and what is installed finds its
# libraries from where it lies.
include(CMakePackageConfigHelpers)

#   fsys_install_floor(TARGET FOLDER OUTPUT COMPONENT DESCRIPTION HEADERS LINKS)     see fsys_floor, which calls it
function(fsys_install_floor target folder output component description headers links)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} EXPORT fsysTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT development)
  list(TRANSFORM headers PREPEND ${CMAKE_SOURCE_DIR}/ole/${folder}/)
  install(FILES ${headers} DESTINATION ${FSYS_INSTALL_HEADERS}/${folder} COMPONENT development)
  set_property(GLOBAL APPEND PROPERTY FSYS_PUBLIC_HEADERS ${headers})
  set_property(GLOBAL APPEND PROPERTY FSYS_LIBRARIES_${component} ${output})

  # Inline code of the public headers calls the floors below, so a user is linked with all of them. The libraries
  # of others are not named: no public header includes theirs, and a shared library brings its own along.
  set(requires)
  foreach(link IN LISTS links)
    get_target_property(name ${link} OUTPUT_NAME)
    list(APPEND requires ${name})
  endforeach()
  list(JOIN requires ", " requires)
  string(REGEX REPLACE "[^/]+" ".." up ${FSYS_INSTALL_PKGCONFIG})
  configure_file(${CMAKE_SOURCE_DIR}/cmake/library.pc.in ${CMAKE_BINARY_DIR}/pkgconfig/${output}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/pkgconfig/${output}.pc DESTINATION ${FSYS_INSTALL_PKGCONFIG} COMPONENT development)
endfunction()

#   fsys_install_program(TARGET)
function(fsys_install_program target)
  file(RELATIVE_PATH libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endfunction()

# The CMake package, once all floors are there.
function(fsys_install_package)
  install(EXPORT fsysTargets NAMESPACE fsys:: DESTINATION ${FSYS_INSTALL_CMAKE} COMPONENT development)
  set(made ${CMAKE_BINARY_DIR}/cmake)
  configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/fsysConfig.cmake.in ${made}/fsysConfig.cmake
    INSTALL_DESTINATION ${FSYS_INSTALL_CMAKE} NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${made}/fsysConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${made}/fsysConfig.cmake ${made}/fsysConfigVersion.cmake DESTINATION ${FSYS_INSTALL_CMAKE}
    COMPONENT development)
  install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
    FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN api EXCLUDE)
endfunction()
