# The idle probe's baseline program; included by bench/idle and by the tests.
find_package(Qt6 REQUIRED COMPONENTS Widgets)
if(NOT TARGET bare_tray)
  add_executable(bare_tray ${CMAKE_CURRENT_LIST_DIR}/bare_tray.cpp)
  target_link_libraries(bare_tray PRIVATE Qt6::Widgets)
endif()
