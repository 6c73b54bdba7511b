# The standards conversion bench: a synthetic moving scene converted from 25
# to 30000/1001 frames per second by the field-rate converter and, where
# ffmpeg is installed, by its frame-rate filters, against the scene rendered
# at the output's own field instants.
add_executable(standards ${CMAKE_CURRENT_SOURCE_DIR}/standards.cpp)
target_link_libraries(standards PRIVATE pal_fieldrate pal_convert project_options project_warnings)
