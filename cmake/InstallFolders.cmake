# Where things are installed. On Debian libraries lie in the folder of their architecture below every prefix and not
# only below /usr, so that one build can be installed anywhere and also be packed.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of the libraries, below the prefix")
endif()
include(GNUInstallDirs)
# The root of includes: #include "fsys/FsysFile.h" finds FSYS_INSTALL_HEADERS/fsys/FsysFile.h.
set(FSYS_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/fsys)
set(FSYS_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/fsys)
set(FSYS_INSTALL_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
