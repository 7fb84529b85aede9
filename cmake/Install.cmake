# What an installation holds, in three parts: the libraries, what hosts are built with, and the tools.
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

install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  PATTERN ".clang-tidy" EXCLUDE)
