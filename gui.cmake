# The X/Motif side: the custom widgets, and the thin shells (*_x.cc) over
# the toolkit-free models.  Built only when Motif is installed.
find_package(X11)
find_path(MOTIF_INCLUDE_DIR Xm/Xm.h)
find_library(MOTIF_LIBRARY Xm)
find_library(XT_LIBRARY Xt)
if(NOT X11_FOUND OR NOT MOTIF_INCLUDE_DIR OR NOT MOTIF_LIBRARY OR NOT XT_LIBRARY)
  message(STATUS "Motif or Xt not found: the X program is not built")
  return()
endif()

file(GLOB WIDGET_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/widgets/*.cc)
add_library(widgets STATIC ${WIDGET_SOURCES})
target_include_directories(widgets PUBLIC ${CMAKE_CURRENT_SOURCE_DIR} ${MOTIF_INCLUDE_DIR} ${X11_INCLUDE_DIR})
target_link_libraries(widgets PUBLIC ${MOTIF_LIBRARY} ${XT_LIBRARY} ${X11_X11_LIB})
# Xt widget class records are aggregate-initialised positionally.
target_compile_options(widgets PRIVATE -Wno-missing-field-initializers)

# ---- quilla_x: the X shells of the toolkit-free models (core/*_x.cc, view/*_x.cc)
file(GLOB QUILLA_X_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/core/*_x.cc
     ${CMAKE_CURRENT_SOURCE_DIR}/view/*_x.cc ${CMAKE_CURRENT_SOURCE_DIR}/files/*_x.cc
     ${CMAKE_CURRENT_SOURCE_DIR}/browser/*_x.cc)
add_library(quilla_x STATIC ${QUILLA_X_SOURCES})
target_link_libraries(quilla_x PUBLIC core view_model files_model browser_model imgproc tessel widgets
                      ${MOTIF_LIBRARY} ${XT_LIBRARY} ${X11_X11_LIB})
# ---- end quilla_x

# ---- the program
if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/main/quilla.cc)
  add_executable(quilla ${CMAKE_CURRENT_SOURCE_DIR}/main/quilla.cc)
  target_link_libraries(quilla PRIVATE quilla_x)
  install(TARGETS quilla RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# How long a key waits while the browser makes thumbnails (bench/thumbnails.sh).
add_executable(keylatency ${CMAKE_CURRENT_SOURCE_DIR}/bench/keylatency.cc)
target_link_libraries(keylatency PRIVATE quilla_x)

# GUI tests: they run against the Xvfb that scripts/test starts
# (QUILLA_TEST_DISPLAY, QUILLA_TEST_DISPLAY8).
function(quilla_gui_tests)
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/gui/*.cc)
  if(NOT _src)
    return()
  endif()
  add_executable(test_gui ${_src})
  target_link_libraries(test_gui PRIVATE GTest::gtest_main quilla_x widgets tessel)
  target_include_directories(test_gui PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/common)
  target_compile_definitions(test_gui PRIVATE QUILLA_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                             QUILLA_BINARY_DIR="${PROJECT_BINARY_DIR}")
  # One GUI test at a time: tests that type keys give their dialog the
  # keyboard of the shared X server, which another test could take away.
  gtest_discover_tests(test_gui DISCOVERY_TIMEOUT 60 PROPERTIES RESOURCE_LOCK x_keyboard)
endfunction()
