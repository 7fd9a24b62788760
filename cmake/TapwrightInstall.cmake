# cmake --install copies the program directory to <prefix>/lib/tapwright and adds a launcher, a menu
# entry and the icon. The program writes its settings and logs beside itself where it can, and in
# the user's XDG directories where it cannot (under /usr).

set(TAPWRIGHT_PROGRAM_DESTINATION lib/tapwright)

if(TARGET tapwright)
    install(TARGETS tapwright RUNTIME DESTINATION ${TAPWRIGHT_PROGRAM_DESTINATION})
endif()
install(DIRECTORY ${TAPWRIGHT_BIN_DIR}/Language ${TAPWRIGHT_BIN_DIR}/Conf ${TAPWRIGHT_BIN_DIR}/Skins
        DESTINATION ${TAPWRIGHT_PROGRAM_DESTINATION})

install(PROGRAMS ${CMAKE_SOURCE_DIR}/packaging/tapwright-launcher.sh DESTINATION bin RENAME tapwright)
# The icon at the theme's usual sizes and as SVG; the PNGs are rendered from the SVG
# (rsvg-convert -w <size> -h <size>) and kept in the tree.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/resources/icons/hicolor DESTINATION share/icons)

install(SCRIPT ${CMAKE_SOURCE_DIR}/cmake/TapwrightDesktopEntry.cmake)
install(SCRIPT ${CMAKE_SOURCE_DIR}/cmake/TapwrightServiceUnits.cmake)
