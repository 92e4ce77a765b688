# What compiler and linker do against mistakes that become attacks, in every build that people may run: all but
# those with sanitizers, which look closer and would be in each other's way. Global, for a program is as hard as its
# softest object. tests/build/hardening_test.py reads it back from the built files.
if(FSYS_SANITIZE)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

# Checked library calls need optimisation; their functions answer where the size of an object is known.
string(TOUPPER "${CMAKE_BUILD_TYPE}" configuration)
if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${configuration}}" MATCHES "-O[1-3gs]")
  set(FSYS_FORTIFIED ON)
  # The compiler's own default may be another level.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
else()
  set(FSYS_FORTIFIED OFF)
endif()

add_compile_options(-fstack-protector-strong)
check_cxx_compiler_flag(-fcf-protection=full FSYS_BRANCH_PROTECTION)
if(FSYS_BRANCH_PROTECTION)
  add_compile_options(-fcf-protection=full)
endif()

# The tables of addresses are filled when a program starts, and read-only from then on.
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
# CMAKE_POSITION_INDEPENDENT_CODE compiles for any address; with this programs are linked for any, too.
check_pie_supported(LANGUAGES CXX)
