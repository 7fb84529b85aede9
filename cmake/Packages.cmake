# Packages: `cpack` in a build folder makes Debian packages on Linux, and one archive for Windows.
set(CPACK_PACKAGE_NAME morwen)
set(CPACK_PACKAGE_VENDOR "The morwen authors")
set(CPACK_PACKAGE_CONTACT "The morwen authors <maintainers@morwen.example.org>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME morwen-${PROJECT_VERSION}-windows-x64)
  install(FILES LICENSE DESTINATION . COMPONENT runtime)
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # it would be the first line of every description
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools python)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

# debian_package(COMPONENT NAME SECTION SUMMARY TEXT [COMPANION COMPONENTS of the same version...])
function(debian_package component name section summary text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  # The first line is the summary, the rest the description.
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  # Every package carries its licence and its history.
  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(folder ${PROJECT_BINARY_DIR}/packaging/${name})
  configure_file(packaging/debian-changelog.in ${folder}/changelog @ONLY)
  execute_process(COMMAND gzip -9nf ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
  configure_file(packaging/debian-copyright.in ${folder}/copyright COPYONLY)
  install(FILES ${folder}/changelog.gz ${folder}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
    COMPONENT ${component})
endfunction()

debian_package(runtime libmorwenplugin1 libs "single sign-on security plug-in - libraries"
  "A multi-user server and its clients load this library, so that users who are\nlogged on already prove who they are with Kerberos, and the server can act as\nthem on a thread.")
debian_package(development libmorwenplugin-dev libdevel "single sign-on security plug-in - development files"
  "Headers, the link to the library, a CMake package, a pkg-config file and\nexample hosts.")
debian_package(tools morwen-tools admin "single sign-on security plug-in - administrators' command"
  "morwen-doctor says what is wrong with the Kerberos set-up of a client or a\nserver, and what to do about it, and makes a real logon between two machines.\nThe guides for administrators, and a unit for systemd to start from.")
debian_package(python python3-morwen python "single sign-on security plug-in - Python module"
  "Clients and servers in Python, with context managers, exceptions and asyncio.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libmorwenplugin1 (= ${PROJECT_VERSION})")
# Written here, because what CPack would generate calls ldconfig in place of triggering it.
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs
  "libharrowlog 1 libmorwenplugin1 (>= ${PROJECT_VERSION})\nlibmorwenplugin 1 libmorwenplugin1 (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packaging/triggers
  ${PROJECT_BINARY_DIR}/packaging/shlibs)
install(FILES packaging/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  COMPONENT runtime RENAME libmorwenplugin1)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libmorwenplugin1 (= ${PROJECT_VERSION}), morwen-tools (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), libmorwenplugin1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
# Python's own commands compile the module for the versions that are there, and remove what they made.
set(maintainer ${PROJECT_BINARY_DIR}/packaging/python)
file(WRITE ${maintainer}/postinst "#!/bin/sh\nset -e\nif command -v py3compile >/dev/null; then py3compile -p python3-morwen; fi\n")
file(WRITE ${maintainer}/prerm "#!/bin/sh\nset -e\nif command -v py3clean >/dev/null; then py3clean -p python3-morwen; fi\n")
file(CHMOD ${maintainer}/postinst ${maintainer}/prerm PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${maintainer}/postinst ${maintainer}/prerm)
include(CPack)
