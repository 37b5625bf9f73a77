# Debian packages of the install components, made by CPack (scripts/package.sh):
#   libcorvane-net0     runtime: the shared libraries
#   libcorvane-net-dev  dev: headers, the CMake package, corvane-net.pc, the .so links
#   corvane-net         command: corvane-net and corvane-net(1)
# Dependencies on Debian's libraries are computed by dpkg-shlibdeps; those of
# the development files are the -dev packages its headers and CMake package use.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane-net)
set(CPACK_PACKAGE_VENDOR Corvane)
set(CPACK_PACKAGE_CONTACT "Corvane developers <dev@corvane.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "network support library of a telephony platform")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev command)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries, for dpkg-shlibdeps: in the package being made (runtime)
# and beside it (command). Paths are taken from each component's staging folder.
set(_libdir ${CPACK_PACKAGING_INSTALL_PREFIX})
if(NOT _libdir)
  set(_libdir /usr)
endif()
set(_libdir ${_libdir}/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS .${_libdir} ../runtime${_libdir})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_COMMAND_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libcorvane-net0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "network support library of a telephony platform\n"
    "Host-name resolution with a time-out, a TTL cache and DNS A-record queries,\n"
    "this host's names, addresses, routes and free ports, URI canonicalisation,\n"
    "and a SIP, TEL, IM and presence URL model.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libcorvane-net-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libace-dev, libc-ares-dev, liblog4cplus-dev, libboost-regex-dev, pkg-config")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "network support library of a telephony platform - development files\n"
    "Headers, the CMake package (find_package(CorvaneNet), target Corvane::net)\n"
    "and the pkg-config file corvane-net.pc.")

set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME corvane-net)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION net)
set(CPACK_COMPONENT_COMMAND_DESCRIPTION
    "command-line front end of the corvane-net library\n"
    "corvane-net decodes SIP URLs, canonicalises URIs, resolves names through the\n"
    "library's resolver and shows this host's addresses, routes and DNS servers,\n"
    "for people or, as JSON lines, for scripts.")

include(CPack)
