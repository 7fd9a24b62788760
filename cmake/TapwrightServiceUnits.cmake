# Runs at install time: writes the service units, whose ExecStart names the program by its full path.
set(TAPWRIGHT_PROGRAM "${CMAKE_INSTALL_PREFIX}/lib/tapwright/tapwright")
if(TAPWRIGHT_PROGRAM MATCHES "[ \t\"\\\\]")
    # systemd splits ExecStart at blanks; quoting keeps the path whole.
    string(REPLACE "\\" "\\\\" TAPWRIGHT_PROGRAM "${TAPWRIGHT_PROGRAM}")
    string(REPLACE "\"" "\\\"" TAPWRIGHT_PROGRAM "${TAPWRIGHT_PROGRAM}")
    set(TAPWRIGHT_PROGRAM "\"${TAPWRIGHT_PROGRAM}\"")
endif()
string(REPLACE "%" "%%" TAPWRIGHT_PROGRAM "${TAPWRIGHT_PROGRAM}")

# Debian keeps user units in /usr/lib/systemd/user; under other prefixes (~/.local, /usr/local) systemd
# finds them in share/systemd/user.
set(user_units share/systemd/user)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(user_units lib/systemd/user)
endif()

foreach(unit "${user_units}/tapwright.service" "lib/systemd/system/tapwright@.service")
    get_filename_component(name "${unit}" NAME)
    set(target "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${unit}")
    message(STATUS "Installing: ${target}")
    configure_file("${CMAKE_CURRENT_LIST_DIR}/../packaging/systemd/${name}.in" "${target}" @ONLY)
endforeach()
