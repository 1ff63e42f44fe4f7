# The real app as a native Wayland client under headless Sway: capture from
# wl-copy and from a client offering several formats, `zettly --toggle`
# opening and closing the window. Leaves screenshots/history-window-sway.png
# (grim) in the build folder.
add_executable(zettly_test_offer ${CMAKE_CURRENT_LIST_DIR}/OfferClipboard.cpp)
zettly_wayland_protocol(zettly_test_offer client wlr-data-control-unstable-v1)
target_link_libraries(zettly_test_offer PRIVATE PkgConfig::WAYLAND)

add_executable(zettly_test_paste_target ${CMAKE_CURRENT_LIST_DIR}/PasteTarget.cpp)
target_link_libraries(zettly_test_paste_target PRIVATE Qt6::Widgets)

add_executable(wayland_app_test ${CMAKE_CURRENT_LIST_DIR}/WaylandAppTest.cpp)
target_include_directories(wayland_app_test PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(wayland_app_test PRIVATE
    ZETTLY_APP_PATH="$<TARGET_FILE:zettly>"
    ZETTLY_TEST_OFFER_PATH="$<TARGET_FILE:zettly_test_offer>"
    ZETTLY_PASTE_TARGET_PATH="$<TARGET_FILE:zettly_test_paste_target>"
)
target_link_libraries(wayland_app_test PRIVATE
    SQLite::SQLite3 PkgConfig::VIPS GTest::gtest GTest::gtest_main
)
add_dependencies(wayland_app_test zettly zettly_test_offer zettly_test_paste_target)

# The test runs as another user, who may write screenshots here.
set(screenshots "${CMAKE_BINARY_DIR}/screenshots")
file(MAKE_DIRECTORY "${screenshots}")
file(CHMOD "${screenshots}" DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_WRITE GROUP_EXECUTE
    WORLD_READ WORLD_WRITE WORLD_EXECUTE)
if(SWAY AND DBUS_DAEMON)
    add_test(NAME wayland_app_sway
        COMMAND ${ZETTLY_RUN_IN_COMPOSITOR} sway -- $<TARGET_FILE:wayland_app_test>)
    set_tests_properties(wayland_app_sway PROPERTIES
        TIMEOUT 180
        ENVIRONMENT "ZETTLY_SCREENSHOTS=${screenshots};ZETTLY_STAGE=$<TARGET_FILE:zettly> $<TARGET_FILE:zettly-image-worker> $<TARGET_FILE:zettly_test_offer> $<TARGET_FILE:zettly_test_paste_target>")
endif()
