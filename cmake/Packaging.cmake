# Debian packages, built by CPack from the two install components:
#   libovkit1     (Runtime)      the shared library and its soname link;
#   libovkit-dev  (Development)  the headers, the .so link, the CMake package
#                                and ovkit.pc; depends on libovkit1 of the
#                                same version.
# `cpack` in the build tree (`make package` at the top) writes both to
# <build>/packages. Configure with the prefix /usr (the default preset does),
# so that GNUInstallDirs gives the multiarch library directory
# lib/<triplet> that the packages install into.

set(OVKIT_PACKAGE_MAINTAINER "The ovkit developers <ovkit@example.org>" CACHE STRING
  "Maintainer field of the Debian packages: a name and a mail address in angle brackets")

# Each package carries its copyright file and changelog in
# /usr/share/doc/<package>, the changelog compressed as Debian wants it.
set(OVKIT_CHANGELOG_GZ ${CMAKE_CURRENT_BINARY_DIR}/deb/changelog.gz)
add_custom_command(OUTPUT ${OVKIT_CHANGELOG_GZ}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/deb
  COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/cmake/deb/changelog > ${OVKIT_CHANGELOG_GZ}
  DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/deb/changelog
  COMMENT "Compressing the package changelog")
add_custom_target(ovkit_package_changelog ALL DEPENDS ${OVKIT_CHANGELOG_GZ})
foreach(pair IN ITEMS "Runtime|libovkit1" "Development|libovkit-dev")
  string(REPLACE "|" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/cmake/deb/copyright ${OVKIT_CHANGELOG_GZ}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endforeach()

# The changelog's newest entry names the version being packaged.
file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/deb/changelog changelog_head LIMIT_COUNT 1)
if(NOT changelog_head MATCHES "^ovkit \\(${PROJECT_VERSION}\\) ")
  message(WARNING "cmake/deb/changelog has no entry for version ${PROJECT_VERSION} at its top")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ovkit)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The packaged library loses its debug information (the build tree keeps it).
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${OVKIT_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# CPack of this CMake has no setting for the Multi-Arch field; it rides on the
# line of the Priority field. Claimed only where the library directory is the
# multiarch one, so that two architectures' packages do not collide.
if(CMAKE_LIBRARY_ARCHITECTURE AND CMAKE_INSTALL_LIBDIR STREQUAL "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  string(APPEND CPACK_DEBIAN_PACKAGE_PRIORITY "\nMulti-Arch: same")
endif()
# A shlibs file, so that dpkg-shlibdeps finds libovkit1 for the clients'
# packages; the library's own Depends come from dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(summary "C++ support library for long-running Linux daemons")
set(about "ovkit gives C++17 management daemons and the tools beside them one frame
for objects and failures, recoverable locks, threads and timers, the process
log, property and message files, text processing, value types, and the
operating-system services of a daemon.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libovkit1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# dpkg runs ldconfig once after all packages of a run are unpacked. (CPack
# also writes postinst and postrm scripts that call it, for any library
# under /usr/lib: a second, harmless run.)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/deb/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${summary}\n${about}\n\nThis package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libovkit-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libovkit1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${summary} - development files\n${about}\n
This package holds the headers, the CMake package (find_package(ovkit)) and the
pkg-config file (ovkit.pc) for building programs against the library.")

include(CPack)
