# The Wayland desktop pieces (window list, activation, the typed paste)
# under real compositors that run-in-compositor.sh starts for each run:
# headless Sway for the window list and the virtual keyboard, KWin's
# virtual backend for its fake input. Included by tests/wayland/CMakeLists.txt.
find_program(SWAY sway)
find_program(DBUS_DAEMON dbus-daemon)

add_executable(wayland_desktop_test ${CMAKE_CURRENT_LIST_DIR}/WaylandDesktopTest.cpp)
target_include_directories(wayland_desktop_test PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(wayland_desktop_test PRIVATE
    zettly_platform_wayland Qt6::Widgets PkgConfig::WAYLAND PkgConfig::WAYLAND_XKB GTest::gtest
)

set(ZETTLY_RUN_IN_COMPOSITOR ${CMAKE_CURRENT_LIST_DIR}/run-in-compositor.sh)
if(SWAY AND DBUS_DAEMON)
    add_test(NAME wayland_desktop_sway
        COMMAND ${ZETTLY_RUN_IN_COMPOSITOR} sway -- $<TARGET_FILE:wayland_desktop_test>
            --gtest_filter=Sway.*:ChordKeys.*)
    set_tests_properties(wayland_desktop_sway PROPERTIES TIMEOUT 120)
endif()
# The harness answers 125 when KWin does not start here; a KWin without fake
# input skips inside the test.
if(DBUS_DAEMON)
    add_test(NAME wayland_desktop_kwin
        COMMAND ${ZETTLY_RUN_IN_COMPOSITOR} kwin -- $<TARGET_FILE:wayland_desktop_test>
            --gtest_filter=KWin.*)
    set_tests_properties(wayland_desktop_kwin PROPERTIES
        TIMEOUT 120 SKIP_RETURN_CODE 125 SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endif()
