# One interface target carries the warnings of every target of ours.
# -Wnull-dereference is not among them: at -O2 g++ 12 reports it inside the standard library.
add_library(fsys_warnings INTERFACE)
target_compile_options(fsys_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough -Wundef
  "$<$<CXX_COMPILER_ID:Clang>:-Wreserved-identifier;-Wreserved-macro-identifier>"
  $<$<BOOL:${FSYS_WERROR}>:-Werror>)
# Where several files are compiled as one, a local name may be that of another file's helper. The builds that compile
# each file by itself look for what really is hidden.
if(CMAKE_UNITY_BUILD)
  target_compile_options(fsys_warnings INTERFACE -Wno-shadow)
endif()
