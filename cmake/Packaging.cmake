# Installation: a tree that works from where it lies, also after it was moved. Each file belongs to a component; the
# components are what packages are made of.
#
#   runtime       the three libraries
#   development   headers, links, pkg-config and CMake files, static libraries, examples
#   tool          lxavi
#   gstreamer     the GStreamer plugin (bindings/gstreamer installs it)

include(CMakePackageConfigHelpers)
set(targets lxAviRead lxDbg lxArith)
set_target_properties(lxDbg lxArith PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})

install(TARGETS ${targets} EXPORT lxAviRead
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS lxPlatform EXPORT lxAviRead)
if(LXAVIREAD_ARCHIVES)
  foreach(target ${targets})
    set_target_properties(${target}Archive PROPERTIES OUTPUT_NAME ${target})
    install(TARGETS ${target}Archive EXPORT lxAviReadStatic ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  endforeach()
endif()
install(DIRECTORY include/ platform/include/ DESTINATION ${LXAVIREAD_INSTALL_HEADERS} COMPONENT development)
install(FILES ${LXAVIREAD_PLATFORM_HEADERS} DESTINATION ${LXAVIREAD_INSTALL_HEADERS} COMPONENT development)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development PATTERN CMakeLists.txt EXCLUDE)
install(FILES doc/man/lxaviread.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
if(LXAVIREAD_TOOLS)
  install(TARGETS lxavi RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES doc/man/lxavi.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES doc/lxavi.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/lxavi COMPONENT tool)
  install(FILES doc/completions/lxavi DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
  install(FILES doc/completions/_lxavi DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tool)
endif()

# ---- pkg-config: the prefix is where the file lies ----

if(LXAVIREAD_PLATFORM STREQUAL host) # what a static program needs besides
  set(LXDBG_PRIVATE_LIBS "-lspdlog -lfmt -lstdc++ -lm -pthread")
endif()
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_PREFIX}/${pkgconfig_folder} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
foreach(library ${targets})
  configure_file(cmake/${library}.pc.in ${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc DESTINATION ${pkgconfig_folder} COMPONENT development)
endforeach()

# ---- CMake: find_package(lxAviRead) ----

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/lxAviRead)
install(EXPORT lxAviRead NAMESPACE lxAviRead:: FILE lxAviReadTargets.cmake DESTINATION ${cmake_folder} COMPONENT development)
if(LXAVIREAD_ARCHIVES)
  install(EXPORT lxAviReadStatic NAMESPACE lxAviRead:: FILE lxAviReadStaticTargets.cmake DESTINATION ${cmake_folder}
    COMPONENT development)
endif()
configure_package_config_file(cmake/lxAviReadConfig.cmake.in lxAviReadConfig.cmake INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(lxAviReadConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lxAviReadConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/lxAviReadConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)
