# What makes a shared library of the product one for Windows: exactly the exports of its .def file, DllMain, a version
# resource, and, when built elsewhere than with MSVC, an import library for MSVC's linker.
enable_language(RC)
if(NOT MSVC)
  # GNU's own dlltool writes import libraries that MSVC's linker has trouble with; LLVM's writes them as MSVC does.
  find_program(MORWEN_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
endif()

function(morwen_windows_library target description)
  set(MORWEN_DLL ${target})
  set(MORWEN_DLL_DESCRIPTION ${description})
  set(version ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/platform/windows/Version.rc.in ${version} @ONLY)
  set(exports ${CMAKE_CURRENT_SOURCE_DIR}/${target}.def)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/platform/windows/DllMain.cpp ${version} ${exports})
  set_target_properties(${target} PROPERTIES PREFIX "" LINK_DEPENDS ${exports})
  if(NOT MSVC)
    set(library ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${target}.lib)
    add_custom_command(OUTPUT ${library} DEPENDS ${exports} VERBATIM
      COMMAND ${MORWEN_DLLTOOL} -m i386:x86-64 -d ${exports} -D ${target}.dll -l ${library})
    add_custom_target(${target}_msvc_import ALL DEPENDS ${library})
    install(FILES ${library} TYPE LIB COMPONENT development)
  endif()
endfunction()
