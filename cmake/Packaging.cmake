# Installation and packages.

install(DIRECTORY include/ platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lxAviRead)
configure_file(cmake/lxAviRead.pc.in lxAviRead.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lxAviRead.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PACKAGE_NAME lxaviread)
set(CPACK_PACKAGE_CONTACT "lxAviRead developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
