# The plain read/write program: the disk's own pace for the converter's job.
add_executable(plainio ${CMAKE_CURRENT_SOURCE_DIR}/plainio.cpp)
target_link_libraries(plainio PRIVATE project_options project_warnings)
