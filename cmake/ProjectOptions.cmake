# Compiler settings shared by every target of the project. Targets link these
# INTERFACE libraries; nothing is set globally or copied per folder.

add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wformat=2)
# The test command builds with warnings as errors, so none can creep in.
option(PAL2NTSC_WERROR "Treat compiler warnings as errors" OFF)
if(PAL2NTSC_WERROR)
  target_compile_options(project_warnings INTERFACE -Werror)
endif()

add_library(project_options INTERFACE)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(project_options INTERFACE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
# The line map is computed in single precision, one rounding per operation:
# no fused multiply-add may merge two of them.
target_compile_options(project_options INTERFACE -ffp-contract=off)

if(PAL2NTSC_SANITIZE)
  target_compile_options(project_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(project_options INTERFACE -fsanitize=address,undefined)
endif()

# pal2ntsc_library(name SOURCES ... [DEPS ...])
function(pal2ntsc_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC project_options ${ARG_DEPS} PRIVATE project_warnings)
endfunction()

# pal2ntsc_x86_kernels(<list> SSE2 <file> AVX2 <file>): on x86, appends the
# vector kernel files to <list>, each compiled for its own instruction set
# and nothing else; the CPU is asked at run time which one to use.
function(pal2ntsc_x86_kernels list)
  cmake_parse_arguments(ARG "" "SSE2;AVX2" "" ${ARGN})
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i.86)$")
    set_source_files_properties(${ARG_SSE2} PROPERTIES COMPILE_OPTIONS "-msse2")
    set_source_files_properties(${ARG_AVX2} PROPERTIES COMPILE_OPTIONS "-mavx2")
    set(${list} ${${list}} ${ARG_SSE2} ${ARG_AVX2} PARENT_SCOPE)
  endif()
endfunction()
