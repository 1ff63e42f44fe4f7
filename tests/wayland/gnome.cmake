# The headless GNOME Shell session run-in-compositor.sh starts, for the
# app's GNOME tests. Included by tests/wayland/CMakeLists.txt.
find_program(GNOME_SHELL gnome-shell)

# The real app under GNOME Shell 43 with Zettly's extension (its GNOME 43
# build): capture, a password manager's copy refused, the window at the
# pointer, a pick pasted. Leaves screenshots/history-window-gnome.png.
add_executable(zettly_test_qt_copy ${CMAKE_CURRENT_LIST_DIR}/QtCopy.cpp)
target_link_libraries(zettly_test_qt_copy PRIVATE Qt6::Widgets)

add_executable(gnome_app_test ${CMAKE_CURRENT_LIST_DIR}/GnomeAppTest.cpp)
target_include_directories(gnome_app_test PRIVATE ${PROJECT_SOURCE_DIR})
# GLib's headers (through libvips) use the word Qt takes for a keyword.
target_compile_definitions(gnome_app_test PRIVATE QT_NO_KEYWORDS
    ZETTLY_APP_PATH="$<TARGET_FILE:zettly>"
    ZETTLY_TEST_QT_COPY_PATH="$<TARGET_FILE:zettly_test_qt_copy>"
    ZETTLY_PASTE_TARGET_PATH="$<TARGET_FILE:zettly_test_paste_target>"
)
target_link_libraries(gnome_app_test PRIVATE
    Qt6::DBus SQLite::SQLite3 PkgConfig::VIPS GTest::gtest
)
add_dependencies(gnome_app_test zettly zettly_test_qt_copy zettly_test_paste_target
    zettly_gnome_extension)
if(GNOME_SHELL AND DBUS_DAEMON)
    add_test(NAME wayland_app_gnome
        COMMAND ${ZETTLY_RUN_IN_COMPOSITOR} gnome -- $<TARGET_FILE:gnome_app_test>)
    set_tests_properties(wayland_app_gnome PROPERTIES
        TIMEOUT 180
        ENVIRONMENT "ZETTLY_GNOME_EXTENSION=${ZETTLY_GNOME_LEGACY_EXTENSION_DIR};ZETTLY_SCREENSHOTS=${screenshots};ZETTLY_STAGE=$<TARGET_FILE:zettly> $<TARGET_FILE:zettly-image-worker> $<TARGET_FILE:zettly_test_qt_copy> $<TARGET_FILE:zettly_test_paste_target>")
endif()
