# One interface target carries the warnings of every target of ours.
# -Wnull-dereference is not among them: at -O2 g++ 12 reports it inside the standard library.
add_library(fsys_warnings INTERFACE)
target_compile_options(fsys_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough -Wundef
  $<$<BOOL:${FSYS_WERROR}>:-Werror>)
