# SPDX-License-Identifier: GPL-2.0-only

# What is installed, by component; scripts/package makes the packages of it: .deb for Linux, a ZIP for Windows.
# Packing takes what scripts/package has built, not every test.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
if(CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version AND CMAKE_INSTALL_LIBDIR STREQUAL "lib")
  # Libraries of several architectures stand side by side there.
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "where libraries are installed" FORCE)
endif()

# Each Debian package has a folder of its own for its papers.
set(components library development tools documentation)
if(NOT WIN32)
  list(APPEND components python)
endif()
foreach(component IN LISTS components)
  set(doc_${component} ${CMAKE_INSTALL_DOCDIR})
endforeach()
if(NOT WIN32)
  set(doc_library ${CMAKE_INSTALL_DATAROOTDIR}/doc/libzelkapi64)
  set(doc_development ${CMAKE_INSTALL_DATAROOTDIR}/doc/libzelkapi64-dev)
  set(doc_tools ${CMAKE_INSTALL_DATAROOTDIR}/doc/zelkapi64-tools)
  set(doc_documentation ${CMAKE_INSTALL_DATAROOTDIR}/doc/zelkapi64-doc)
  set(doc_python ${CMAKE_INSTALL_DATAROOTDIR}/doc/python3-zelkapi)
endif()

# The library, with what has to go along with every copy of it.
set_target_properties(ZelkApi PROPERTIES EXPORT_NAME ZelkApi64)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZelkApi64)
install(TARGETS ZelkApi zelkqueue EXPORT ZelkApi64
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(component IN LISTS components)
  install(FILES LICENSE THIRD-PARTY-NOTICES.md DESTINATION ${doc_${component}} COMPONENT ${component})
endforeach()
if(WIN32)
  # The licence of two that are linked in; Debian has it on every system.
  install(FILES ${PROJECT_BINARY_DIR}/deps/libsndfile-1.2.0/COPYING RENAME LGPL-2.1.txt DESTINATION ${doc_library}
    COMPONENT library)
endif()
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${doc_library} COMPONENT library)
install(FILES examples/ZelkApi.ini DESTINATION ${doc_library} COMPONENT library)

# What applications are built with.
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
# From the .pc file up to the prefix, however deep the library's folder is.
string(REGEX REPLACE "[^/]+" ".." zelk_pc_up ${CMAKE_INSTALL_LIBDIR})
configure_file(cmake/zelkapi64.pc.in zelkapi64.pc @ONLY)
configure_file(cmake/zelkqueue.pc.in zelkqueue.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelkapi64.pc ${PROJECT_BINARY_DIR}/zelkqueue.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(DIRECTORY examples/ DESTINATION ${doc_development}/examples COMPONENT development
  FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.cs" PATTERN python EXCLUDE)
# For .NET a file to add to a project.
install(FILES bindings/dotnet/ZelkApi.cs bindings/dotnet/ZelkApi.config DESTINATION ${CMAKE_INSTALL_DATADIR}/zelkapi64/dotnet
  COMPONENT development)

# The Python package. Wheels bring the queue library along (scripts/packaging/wheel); where packages are installed it is
# the system's. The papers are what Python's own tools know a package by.
if(WIN32)
  install(DIRECTORY examples/python DESTINATION ${doc_development}/examples COMPONENT development
    FILES_MATCHING PATTERN "*.py")
else()
  install(DIRECTORY bindings/python/zelkapi DESTINATION lib/python3/dist-packages COMPONENT python
    FILES_MATCHING PATTERN "*.py" PATTERN py.typed PATTERN __pycache__ EXCLUDE)
  set(metadata ${PROJECT_BINARY_DIR}/zelkapi-${PROJECT_VERSION}.dist-info/METADATA)
  file(CONFIGURE OUTPUT ${metadata} CONTENT "Metadata-Version: 2.1
Name: zelkapi
Version: ${PROJECT_VERSION}
Summary: Voice calls on ISDN primary-rate E1 trunks, through the ZelkApi64 library
License: GPL-2.0-only
Requires-Python: >=3.9
")
  install(FILES ${metadata} DESTINATION lib/python3/dist-packages/zelkapi-${PROJECT_VERSION}.dist-info COMPONENT python)
  install(DIRECTORY examples/python/ DESTINATION ${doc_python}/examples COMPONENT python FILES_MATCHING PATTERN "*.py")
endif()

# The programs.
install(TARGETS zelk-cardsim zelk-phone RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
if(TARGET zelk-trace)
  install(TARGETS zelk-trace RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(TARGET zelk-doctor)
  install(TARGETS zelk-doctor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(TARGET zelk-extcap)
  # Where the distribution's Wireshark looks for such programs.
  install(TARGETS zelk-extcap RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/extcap COMPONENT tools)
endif()
if(TARGET zelk-replay)
  install(TARGETS zelk-replay RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
install(FILES wireshark/zelk.lua DESTINATION ${doc_documentation}/wireshark COMPONENT documentation)
if(NOT WIN32)
  install(PROGRAMS scripts/decode-capture RENAME zelk-decode-capture DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

# The guides, and what scripts/dev docs has made: where it has not run there is nothing of it.
install(DIRECTORY docs/ DESTINATION ${doc_documentation} COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.schema.json" PATTERN man EXCLUDE)
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${doc_documentation} COMPONENT documentation OPTIONAL)
if(NOT WIN32)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/man/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT tools OPTIONAL)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development OPTIONAL)
endif()
