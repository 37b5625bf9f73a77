# Installs headers, the libraries, a CMake package (find_package(CorvaneNet)
# giving Corvane::net) and a pkg-config file. Components, one Debian package
# each: runtime (the shared libraries), dev (what a program is built with),
# command (corvane-net and its man page, declared beside it).
include(CMakePackageConfigHelpers)

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvane COMPONENT dev)
install(TARGETS corvane_platform corvane_net EXPORT CorvaneNetTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(EXPORT CorvaneNetTargets NAMESPACE Corvane:: FILE CorvaneNetTargets.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneNet COMPONENT dev)
set_target_properties(corvane_net PROPERTIES EXPORT_NAME net)
set_target_properties(corvane_platform PROPERTIES EXPORT_NAME platform)

configure_package_config_file(cmake/CorvaneNetConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/CorvaneNetConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneNet)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/CorvaneNetConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/CorvaneNetConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/CorvaneNetConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneNet COMPONENT dev)

# The prefix is found relative to the .pc file, so an install moved with --prefix still works.
file(RELATIVE_PATH PC_PREFIX_FROM_PCDIR /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/corvane-net.pc.in ${CMAKE_CURRENT_BINARY_DIR}/corvane-net.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/corvane-net.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
