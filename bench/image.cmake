pal2ntsc_benchmark(image_bench SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/image_bench.cpp DEPS pal_image)
