# The Desktop Entry reader of the autostart list: plain C++, no Qt needed.
corvanta_add_fuzzer(fuzz_desktop_entry
  ${CMAKE_CURRENT_LIST_DIR}/fuzz_desktop_entry.cpp
  ${PROJECT_SOURCE_DIR}/app/platform/DesktopEntry.cpp)
target_include_directories(fuzz_desktop_entry PRIVATE ${PROJECT_SOURCE_DIR}/app/platform)
