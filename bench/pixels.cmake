pal2ntsc_benchmark(pixels_bench SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/pixels_bench.cpp
  DEPS pal_tool pal_convert pal_image pal_util)
