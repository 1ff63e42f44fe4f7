# The headless GNOME Shell session run-in-compositor.sh starts for the app's
# GNOME tests: an extension loaded and enabled, told to trust the test's
# programs, wl-clipboard working, a screenshot taken. Included by
# tests/wayland/CMakeLists.txt.
find_program(GNOME_SHELL gnome-shell)
if(GNOME_SHELL AND DBUS_DAEMON)
    add_test(NAME wayland_gnome_session
        COMMAND ${ZETTLY_RUN_IN_COMPOSITOR} gnome -- ${CMAKE_CURRENT_LIST_DIR}/gnome/check-session.sh)
    set_tests_properties(wayland_gnome_session PROPERTIES
        TIMEOUT 120
        ENVIRONMENT "ZETTLY_GNOME_EXTENSION=${CMAKE_CURRENT_LIST_DIR}/gnome/probe@zettly.test")
endif()
