# SPDX-License-Identifier: GPL-2.0-only

# What is installed, and the packages made of it: a ZIP for Windows, a pair of .deb for Linux (scripts/package).
# Packing takes what scripts/package has built, not every test.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(ZelkApi PROPERTIES EXPORT_NAME ZelkApi64)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZelkApi64)
install(TARGETS ZelkApi zelkqueue EXPORT ZelkApi64
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT ZelkApi64 NAMESPACE ZelkApi64:: FILE ZelkApi64Config.cmake DESTINATION ${package_dir}
  COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZelkApi64ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZelkApi64ConfigVersion.cmake DESTINATION ${package_dir} COMPONENT development)
install(DIRECTORY include/zelk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
if(WIN32)
  set(zelk_link_name ZelkApi64)
  install(FILES ${PROJECT_BINARY_DIR}/lib/ZelkApi64.lib DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
else()
  set(zelk_link_name ZelkApi-64)
endif()
configure_file(cmake/zelkapi64.pc.in zelkapi64.pc @ONLY)
configure_file(cmake/zelkqueue.pc.in zelkqueue.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelkapi64.pc ${PROJECT_BINARY_DIR}/zelkqueue.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(TARGETS zelk-cardsim zelk-phone RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development
  FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.cs" PATTERN "*.py")
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development FILES_MATCHING PATTERN "*.md")
install(FILES README.md LICENSE THIRD-PARTY-NOTICES.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
if(NOT WIN32)
  # The tools' package carries them too: each .deb can be passed on alone.
  install(FILES LICENSE THIRD-PARTY-NOTICES.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libzelkapi64-dev
    COMPONENT development)
endif()
install(FILES examples/ZelkApi.ini DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)

set(CPACK_PACKAGE_NAME zelkapi64)
set(CPACK_PACKAGE_VENDOR "ZelkApi64")
set(CPACK_PACKAGE_CONTACT "ZelkApi64 developers <zelkapi64@localhost>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ZelkApi64-${PROJECT_VERSION}-windows-x64)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzelkapi64)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelkapi64-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzelkapi64 (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
endif()
include(CPack)
