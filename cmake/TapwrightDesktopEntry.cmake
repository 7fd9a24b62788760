# Runs at install time: writes the menu entry, whose Exec names the launcher by its full path.
set(launcher "${CMAKE_INSTALL_PREFIX}/bin/tapwright")
# Inside the quotes of an Exec argument these four take a backslash, and a percent sign is doubled;
# then the string escape of desktop entries doubles every backslash.
string(REGEX REPLACE "([\\\\\"`$])" "\\\\\\1" launcher "${launcher}")
string(REPLACE "%" "%%" launcher "${launcher}")
string(REPLACE "\\" "\\\\" launcher "${launcher}")
set(TAPWRIGHT_DESKTOP_EXEC "\"${launcher}\"")

set(entry "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/applications/tapwright.desktop")
message(STATUS "Installing: ${entry}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/../packaging/tapwright.desktop.in" "${entry}" @ONLY)
