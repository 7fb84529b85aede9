# The manual, from the public headers, docs/doctor.md and docs/README.md: man pages, and with the target "docs" an API reference as HTML.
include(GNUInstallDirs)
set(headers ${PROJECT_SOURCE_DIR}/include/morwen/morwenplugin.h ${PROJECT_SOURCE_DIR}/include/morwen/harrow_log.h)
set(maker ${PROJECT_SOURCE_DIR}/packaging/man/man_pages.py)
set(man_folder ${PROJECT_BINARY_DIR}/man)

find_program(MORWEN_DOXYGEN doxygen)
if(MORWEN_DOXYGEN)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/Doxyfile.in ${PROJECT_BINARY_DIR}/packaging/Doxyfile @ONLY)
  add_custom_target(docs COMMAND ${MORWEN_DOXYGEN} ${PROJECT_BINARY_DIR}/packaging/Doxyfile VERBATIM)
else()
  add_custom_target(docs COMMAND ${CMAKE_COMMAND} -E echo "docs: doxygen is missing; run scripts/setup --checks"
    COMMAND ${CMAKE_COMMAND} -E false VERBATIM)
endif()

option(MORWEN_MAN "Make man pages (Python 3, gzip)" ${UNIX})
if(NOT MORWEN_MAN)
  return()
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(GZIP gzip REQUIRED)

# man_pages(COMPONENT SECTION PAGES ARGUMENTS...): makes the pages and installs them compressed.
function(man_pages component section pages)
  list(TRANSFORM pages PREPEND ${man_folder}/ OUTPUT_VARIABLE plain)
  list(TRANSFORM plain APPEND .${section})
  list(TRANSFORM plain APPEND .gz OUTPUT_VARIABLE compressed)
  add_custom_command(OUTPUT ${compressed} VERBATIM
    COMMAND ${Python3_EXECUTABLE} ${maker} ${PROJECT_VERSION} ${man_folder} ${ARGN}
    COMMAND ${GZIP} -9nfk ${plain}
    DEPENDS ${maker} ${headers} ${PROJECT_SOURCE_DIR}/docs/doctor.md ${PROJECT_SOURCE_DIR}/docs/README.md $<$<STREQUAL:${section},1>:morwen-doctor>)
  add_custom_target(man${section} ALL DEPENDS ${compressed})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# The pages of the headers are those of the functions that they declare.
set(names)
foreach(header ${headers})
  file(STRINGS ${header} lines REGEX "^(SSO_API|HARROW_LOG_API) ")
  list(TRANSFORM lines REPLACE "^[A-Z_]+ [a-z0-9_* ]*[ *]([A-Za-z]+)\\(.*" "\\1")
  get_filename_component(stem ${header} NAME_WE)
  list(APPEND names ${stem} ${lines})
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers})
man_pages(development 3 "${names}" --headers ${headers})
man_pages(runtime 7 morwen --overview ${PROJECT_SOURCE_DIR}/docs/README.md)
if(TARGET morwen-doctor)
  man_pages(tools 1 morwen-doctor --doctor $<TARGET_FILE:morwen-doctor> ${PROJECT_SOURCE_DIR}/docs/doctor.md)
endif()
