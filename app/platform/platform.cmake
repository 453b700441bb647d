# The Linux desktop services and the embedded translations, as a library of
# their own so that their tests do not need the rest of the application.
# Qt's imported targets are visible per directory: find them in every
# directory that includes this file, define the library only once.
find_package(Qt6 REQUIRED COMPONENTS Core DBus Gui Network LinguistTools)
if(TARGET corvanta_platform)
  return()
endif()

add_library(corvanta_platform STATIC
  ${CMAKE_CURRENT_LIST_DIR}/DBusNotifier.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DBusNotifier.h
  ${CMAKE_CURRENT_LIST_DIR}/DesktopEntry.cpp
  ${CMAKE_CURRENT_LIST_DIR}/LinuxPlatform.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SingleInstance.cpp)
target_include_directories(corvanta_platform PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(corvanta_platform PUBLIC Qt6::Core Qt6::DBus Qt6::Gui Qt6::Network
  corvanta_translations)
set_target_properties(corvanta_platform PROPERTIES AUTOMOC ON POSITION_INDEPENDENT_CODE ON)

# The translations with Qt Core alone: the commands need them too, and must
# not load the GUI libraries.
add_library(corvanta_translations STATIC
  ${CMAKE_CURRENT_LIST_DIR}/Translations.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Translations.h)
target_include_directories(corvanta_translations PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(corvanta_translations PUBLIC Qt6::Core)
set_target_properties(corvanta_translations PROPERTIES POSITION_INDEPENDENT_CODE ON)

# Only the release step is wired into the build: lupdate must see the whole
# application, so it is run by hand (see app/translations/README).
# Qt turns the resources of a static library into an object library that
# travels with it, so every program or module linking corvanta_translations
# finds ":/i18n/corvanta_*.qm" without Q_INIT_RESOURCE.
qt_add_lrelease(corvanta_translations
  TS_FILES ${CMAKE_CURRENT_LIST_DIR}/../translations/corvanta_de.ts
  QM_FILES_OUTPUT_VARIABLE corvanta_qm_files
  NO_GLOBAL_TARGET)
qt_add_resources(corvanta_translations corvanta_translations
  PREFIX /i18n
  BASE ${CMAKE_CURRENT_BINARY_DIR}
  FILES ${corvanta_qm_files})
