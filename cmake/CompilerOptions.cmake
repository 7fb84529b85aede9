# Warnings, hardening and sanitizers, for every target of the project: link to morwen_options.
add_library(morwen_options INTERFACE)
target_include_directories(morwen_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)

if(MSVC)
  # Not compiled yet: see docs/windows.md.
  target_compile_options(morwen_options INTERFACE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /guard:cf)
  target_link_options(morwen_options INTERFACE /guard:cf /CETCOMPAT /DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
  target_compile_options(morwen_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>
    -Werror
    # Traces name their source file: from the project's root on, not as it lies on the machine that built it.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -fstack-protector-strong)
  if(NOT MORWEN_SANITIZE)
    target_compile_options(morwen_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  endif()
  if(WIN32)
    # Nothing of the compiler's own is needed beside the libraries. This compiler has no control-flow guard for Windows.
    target_link_options(morwen_options INTERFACE -static -fstack-protector-strong
      -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
  else()
    target_link_options(morwen_options INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
  endif()
endif()

if(MORWEN_SANITIZE)
  target_compile_options(morwen_options INTERFACE
    -fsanitize=${MORWEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(morwen_options INTERFACE -fsanitize=${MORWEN_SANITIZE})
endif()

if(MORWEN_FUZZ)
  target_compile_options(morwen_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
