# Included by app/CMakeLists.txt once corvanta_app exists.
include(${CMAKE_CURRENT_LIST_DIR}/platform.cmake)
target_link_libraries(corvanta_app PUBLIC corvanta_platform)
