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

# The vector kernels a build gets follow the machine the compiler builds for,
# asked of the compiler itself, so that the kernel files and the code that
# chooses among them at run time agree.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("#if !defined(__x86_64__) && !defined(__i386__)\n#error\n#endif\nint main() { return 0; }"
  PAL2NTSC_TARGET_X86)
check_cxx_source_compiles("#if !defined(__aarch64__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__\n#error\n#endif\nint main() { return 0; }"
  PAL2NTSC_TARGET_NEON)
# The AVX-512 kernels (F, BW and VL), on x86 when the compiler takes the flags.
set(PAL2NTSC_AVX512_FLAGS -mavx512f -mavx512bw -mavx512vl)
if(PAL2NTSC_TARGET_X86)
  include(CheckCXXCompilerFlag)
  string(REPLACE ";" " " avx512Flags "${PAL2NTSC_AVX512_FLAGS}")
  check_cxx_compiler_flag("${avx512Flags}" PAL2NTSC_AVX512_KERNELS)
endif()

# pal2ntsc_vector_kernels(<target> SSE2 <files> AVX2 <files> AVX512 <files>
# NEON <files>): adds the vector kernel files of the machine built for to
# <target>, each compiled for its own instruction set and nothing else, and
# tells the target's code which ones it has (PAL2NTSC_X86_KERNELS,
# PAL2NTSC_NEON_KERNELS; PAL2NTSC_AVX512_KERNELS comes with pal_util);
# the CPU is asked at run time which one to use. NEON is part of every
# AArch64 processor and needs no flag.
function(pal2ntsc_vector_kernels target)
  cmake_parse_arguments(ARG "" "" "SSE2;AVX2;AVX512;NEON" ${ARGN})
  if(PAL2NTSC_TARGET_X86)
    set_source_files_properties(${ARG_SSE2} PROPERTIES COMPILE_OPTIONS "-msse2")
    set_source_files_properties(${ARG_AVX2} PROPERTIES COMPILE_OPTIONS "-mavx2")
    target_sources(${target} PRIVATE ${ARG_SSE2} ${ARG_AVX2})
    if(PAL2NTSC_AVX512_KERNELS)
      set_source_files_properties(${ARG_AVX512} PROPERTIES COMPILE_OPTIONS "${PAL2NTSC_AVX512_FLAGS}")
      target_sources(${target} PRIVATE ${ARG_AVX512})
    endif()
    target_compile_definitions(${target} PRIVATE PAL2NTSC_X86_KERNELS)
  elseif(PAL2NTSC_TARGET_NEON)
    target_sources(${target} PRIVATE ${ARG_NEON})
    target_compile_definitions(${target} PRIVATE PAL2NTSC_NEON_KERNELS)
  endif()
endfunction()
