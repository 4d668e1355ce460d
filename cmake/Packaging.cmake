# What a release installs and ships beyond the targets themselves: the relocatable pkg-config file,
# the licence and changelog, and the Debian package of everything `cmake --install` installs.
# Included once, at the end of the top-level CMakeLists.txt, after every install rule.

# The pkg-config file names every directory relative to its own (${pcfiledir}), so an installation
# works from any prefix: `cmake --install --prefix OTHER`, or a package unpacked elsewhere. It lies
# in <libdir>/pkgconfig, and libdir is one component ("lib") or more (Debian's multiarch
# "lib/x86_64-linux-gnu" under the prefix /usr), so the climb to the prefix is computed. An
# absolute libdir pins the installation to where it was configured.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(NOM_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(NOM_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH nom_pc_climb "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" nom_pc_climb "${nom_pc_climb}")
  set(NOM_PC_PREFIX "\${pcfiledir}/${nom_pc_climb}")
  set(NOM_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(NOM_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/NOMVGXGenBase")
else()
  set(NOM_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}/NOMVGXGenBase")
endif()
# Written over the file of the same name the top-level configure step made before these variables
# existed; the install rule there installs this one.
configure_file(${PROJECT_SOURCE_DIR}/cmake/NOMVGXGenBase.pc.in
               ${PROJECT_BINARY_DIR}/NOMVGXGenBase.pc @ONLY)

# The licence travels with every copy, as it requires; Debian looks for it under the name
# "copyright" in the package's documentation directory.
set(NOM_PACKAGE_NAME nomvgxgenbase)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${NOM_PACKAGE_NAME} RENAME copyright)
install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${NOM_PACKAGE_NAME})

# A sanitized build links the sanitizer runtimes into everything: it is for testing, never for
# shipping, so it gets no package configuration (cpack there reports that none exists).
if(NOM_SANITIZE)
  return()
endif()

# The Debian package: `cmake --workflow --preset package` (configured for /usr, so the libraries
# go to the multiarch directory), or `cpack -G DEB` in any build directory. It holds exactly what
# `cmake --install` installs; the tests and benchmarks install nothing.
set(NOM_PACKAGE_MAINTAINER "NOMVGXGenBase developers <maintainers@nomvgxgenbase.invalid>"
    CACHE STRING "Maintainer field of the Debian package: name <address>")
set(CPACK_PACKAGE_NAME ${NOM_PACKAGE_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "NOMVGXGenBase developers")
set(CPACK_PACKAGE_CONTACT "${NOM_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Turns manufacturing-planning data into self-contained 3D packages")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "NOMVGXGenBase generates VGX packages (main document, view file, product documents, GLB\n"
    "geometry and Mapping.xml) from a planning database in SQLite or PostgreSQL, and gathers a\n"
    "package's referenced documents into one self-contained directory (Pack & Go).\n"
    "This package holds the nomsoi command, the shared libraries, and the headers, CMake\n"
    "package files and pkg-config file for programs built against them.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${NOM_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Depends is computed from the binaries (dpkg-shlibdeps, from dpkg-dev): pugixml, SQLite, libpq,
# OpenSSL, jemalloc (nomsoi's) and the C++ runtime at the versions the build linked against.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file, so that packages of programs linked against these libraries get their
# dependency on this package computed the same way.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git/" "/build/" "/out/")
include(CPack)
