# The sanitizers apply to every target, third-party headers included, so they are set globally.
if(FSYS_SANITIZE STREQUAL "address-undefined")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(FSYS_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(FSYS_SANITIZE)
  message(FATAL_ERROR "FSYS_SANITIZE is '${FSYS_SANITIZE}'; use address-undefined, thread or nothing")
endif()

# What the fuzzer learns from an input comes from counters in the libraries.
if(FSYS_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT FSYS_SANITIZE STREQUAL "address-undefined")
    message(FATAL_ERROR "FSYS_FUZZ needs clang and FSYS_SANITIZE=address-undefined: use the preset fuzz")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
