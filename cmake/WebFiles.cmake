# The page of "fsys serve" becomes part of the program. What draws its charts comes from npm, in the version and
# with the hash that tools/web/package-lock.json names; nothing of it is run while building.
#
# FSYS_CHARTS: ON fails without it, OFF never asks for it, AUTO builds a page without charts where npm is missing
# or finds no network.
set(FSYS_CHARTS AUTO CACHE STRING "Charts on the page of fsys serve: AUTO, ON or OFF")
set_property(CACHE FSYS_CHARTS PROPERTY STRINGS AUTO ON OFF)

# Sets VARIABLE to the folder of the charts' files, or to nothing.
function(fsys_fetch_charts variable)
  set(${variable} "" PARENT_SCOPE)
  if(NOT FSYS_CHARTS STREQUAL AUTO AND NOT FSYS_CHARTS)
    message(STATUS "fsys serve: no charts (FSYS_CHARTS is OFF)")
    return()
  endif()
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/web)
  set(charts ${folder}/node_modules/uplot)
  file(SHA256 ${CMAKE_CURRENT_SOURCE_DIR}/web/package-lock.json wanted)
  set(fetched)
  if(EXISTS ${folder}/fetched AND EXISTS ${charts}/dist/uPlot.iife.min.js)
    file(READ ${folder}/fetched fetched)
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/web/package-lock.json)
  if(NOT fetched STREQUAL wanted)
    find_program(NPM npm)
    set(problem "npm is not installed")
    if(NPM)
      configure_file(web/package.json ${folder}/package.json COPYONLY)
      configure_file(web/package-lock.json ${folder}/package-lock.json COPYONLY)
      execute_process(
        COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline --fetch-retries=1 --fetch-timeout=20000
        WORKING_DIRECTORY ${folder} TIMEOUT 120 RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
      set(problem "npm ci failed in ${folder}: ${output}")
    endif()
    if(NOT NPM OR NOT result EQUAL 0 OR NOT EXISTS ${charts}/dist/uPlot.iife.min.js)
      if(FSYS_CHARTS STREQUAL AUTO)
        message(STATUS "fsys serve: no charts; -DFSYS_CHARTS=ON insists on them. ${problem}")
        return()
      endif()
      message(FATAL_ERROR "fsys serve: no charts; -DFSYS_CHARTS=OFF builds without them. ${problem}")
    endif()
    file(WRITE ${folder}/fetched ${wanted})
  endif()
  set(${variable} ${charts} PARENT_SCOPE)
endfunction()

# Sets VARIABLE to the source file that holds the page.
function(fsys_embed_web variable)
  set(web ${CMAKE_CURRENT_SOURCE_DIR}/web)
  set(pairs "/=${web}/index.html|/page.js=${web}/page.js|/page.css=${web}/page.css|/icon.svg=${web}/icon.svg")
  set(files ${web}/index.html ${web}/page.js ${web}/page.css ${web}/icon.svg)
  fsys_fetch_charts(charts)
  if(charts)
    string(APPEND pairs "|/uPlot.js=${charts}/dist/uPlot.iife.min.js|/uPlot.css=${charts}/dist/uPlot.min.css|/license.txt=${charts}/LICENSE")
    list(APPEND files ${charts}/dist/uPlot.iife.min.js ${charts}/dist/uPlot.min.css ${charts}/LICENSE)
  endif()
  set(output ${CMAKE_CURRENT_BINARY_DIR}/WebFiles.cpp)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} "-DOUTPUT=${output}" "-DFILES=${pairs}" -P ${CMAKE_SOURCE_DIR}/cmake/EmbedFiles.cmake
    DEPENDS ${files} ${CMAKE_SOURCE_DIR}/cmake/EmbedFiles.cmake VERBATIM)
  set(${variable} ${output} PARENT_SCOPE)
  set(FSYS_HAVE_CHARTS "${charts}" CACHE INTERNAL "Where the charts come from; empty without charts")
endfunction()
