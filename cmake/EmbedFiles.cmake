# Makes a source file that holds other files as they are. Run with -P:
#   OUTPUT  source to write
#   FILES   PATH=FILE pairs, separated by "|": what a browser asks for, and where it lies
set(types .html "text/html" .css "text/css" .js "text/javascript" .svg "image/svg+xml" .txt "text/plain")
set(mark embedded)
set(entries)
string(REPLACE "|" ";" pairs "${FILES}")
foreach(pair IN LISTS pairs)
  string(REGEX MATCH "^([^=]+)=(.+)$" ignored "${pair}")
  set(path ${CMAKE_MATCH_1})
  set(file ${CMAKE_MATCH_2})
  get_filename_component(extension ${path} LAST_EXT)
  if(path STREQUAL "/")
    set(extension .html)
  endif()
  list(FIND types "${extension}" at)
  if(at LESS 0)
    message(FATAL_ERROR "${path}: no type is known for its ending")
  endif()
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  file(READ ${file} content)
  string(FIND "${content}" ")${mark}\"" end)
  if(NOT end EQUAL -1)
    message(FATAL_ERROR "${file} cannot be embedded: it holds the mark of its own end")
  endif()
  string(APPEND entries "        {\"${path}\", \"${type}; charset=utf-8\", R\"${mark}(${content})${mark}\"},\n")
  if(path STREQUAL "/uPlot.js")
    set(charts true)
  endif()
endforeach()
if(NOT charts)
  set(charts false)
endif()
file(WRITE ${OUTPUT} "#include \"WebFiles.h\"

const std::vector<WebFile>& webFiles()
{
    static const std::vector<WebFile> files{
${entries}    };
    return files;
}

bool haveCharts() { return ${charts}; }
")
