# A shared library of the product: its version, and the names that leave it, which stand in a .map file beside its list of
# sources, for Windows in a .def file.
if(WIN32)
  include(${CMAKE_CURRENT_LIST_DIR}/WindowsLibrary.cmake)
endif()

function(morwen_shared_library target description)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
  if(WIN32)
    morwen_windows_library(${target} ${description})
    return()
  endif()
  set(names ${CMAKE_CURRENT_SOURCE_DIR}/${target}.map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${names})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${names})
  if(NOT MORWEN_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
    # The C++ library and its unwinder inside: what a C host would load and relocate of the shared ones takes a client
    # longer than its logon. No exception passes an export, so it is no matter that the host has an unwinder of its own.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
      target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/platform/linux/LibraryEnd.cpp)
    endif()
  endif()
endfunction()
