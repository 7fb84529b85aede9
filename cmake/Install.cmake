# What an installation holds, in four parts: the libraries, what hosts are built with, the tools, and the Python module.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(morwenplugin PROPERTIES EXPORT_NAME plugin)
set_target_properties(harrowlog PROPERTIES EXPORT_NAME log)
# The libraries of one installation find each other wherever it lies; those of the system need no help.
if(NOT WIN32 AND NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(morwenplugin PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS morwenplugin harrowlog EXPORT morwen-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/morwen DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

if(TARGET morwen-doctor)
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set_target_properties(morwen-doctor PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
  install(TARGETS morwen-doctor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/morwen-doctor
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/morwen)
install(EXPORT morwen-targets NAMESPACE morwen:: DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/morwen-config.cmake.in
  ${PROJECT_BINARY_DIR}/packaging/morwen-config.cmake INSTALL_DESTINATION ${package_folder})
# Before 1.0 a minor version may change what hosts see.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/morwen-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/morwen-config.cmake
  ${PROJECT_BINARY_DIR}/packaging/morwen-config-version.cmake
  DESTINATION ${package_folder} COMPONENT development)

# From where the file lies, so that an installation may lie anywhere.
file(RELATIVE_PATH PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" PC_TO_PREFIX ${PC_TO_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/packaging/morwen.pc.in ${PROJECT_BINARY_DIR}/packaging/morwen.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/morwen.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The pages that its readers need, and none for those who build the library, in the folders that they have here, so that their
# links hold. A link goes to a page of the same package, or of one that it depends on: the package test looks.
set(pages ${CMAKE_INSTALL_DATADIR}/doc/morwen)
if(WIN32)
  set(pages .)
  install(FILES docs/windows.md DESTINATION docs COMPONENT development)
else()
  install(CODE "file(MAKE_DIRECTORY \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${pages})
    file(CREATE_LINK ../../../${CMAKE_INSTALL_INCLUDEDIR} \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${pages}/include SYMBOLIC)"
    COMPONENT development)
  install(FILES examples/myserver.service DESTINATION ${pages}/examples COMPONENT tools)
  install(DIRECTORY python/morwen DESTINATION lib/python3/dist-packages COMPONENT python PATTERN "__pycache__" EXCLUDE)
  install(FILES docs/python.md DESTINATION ${pages}/docs COMPONENT python)
  install(PROGRAMS examples/first_login.py DESTINATION ${pages}/examples COMPONENT python)
  install(PROGRAMS examples/web/web_server.py DESTINATION ${pages}/examples/web COMPONENT python)
  install(FILES examples/web/README.md DESTINATION ${pages}/examples/web COMPONENT python)
endif()
install(FILES CHANGELOG.md SECURITY.md DESTINATION ${pages} COMPONENT tools)
install(FILES docs/README.md docs/admin-guide.md docs/doctor.md docs/impersonation.md docs/messages.md docs/security.md
  DESTINATION ${pages}/docs COMPONENT tools)
install(FILES docs/host-guide.md DESTINATION ${pages}/docs COMPONENT development)
install(DIRECTORY examples DESTINATION ${pages} COMPONENT development
  PATTERN ".clang-tidy" EXCLUDE PATTERN "*.py" EXCLUDE PATTERN "web" EXCLUDE PATTERN "*.service" EXCLUDE)
