# One interface target carries the warnings of every target of ours.
add_library(fsys_warnings INTERFACE)
target_compile_options(fsys_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough -Wundef
  $<$<BOOL:${FSYS_WERROR}>:-Werror>)
