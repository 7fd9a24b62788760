# The Debian package tapwright_<version>_<arch>.deb, made by cpack (scripts/package) in <build>/package:
# the program under /usr/lib/tapwright, where it cannot write, so it keeps settings and logs in the
# user's XDG directories; its dependencies come from dpkg-shlibdeps.

set(TAPWRIGHT_PACKAGE_MAINTAINER "Tapwright developers <tapwright@tapwright.invalid>"
    CACHE STRING "Maintainer field of the Debian package")

# The manual page and the package's changelog, compressed as Debian ships them.
set(doc_dir ${CMAKE_BINARY_DIR}/packaging)
configure_file(${CMAKE_SOURCE_DIR}/packaging/tapwright.1 ${doc_dir}/tapwright.1 @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/packaging/debian/changelog.in ${doc_dir}/changelog @ONLY)
add_custom_command(
    OUTPUT ${doc_dir}/tapwright.1.gz ${doc_dir}/changelog.gz
    COMMAND gzip -9nkf tapwright.1 changelog
    DEPENDS ${doc_dir}/tapwright.1 ${doc_dir}/changelog
    WORKING_DIRECTORY ${doc_dir}
    VERBATIM)
add_custom_target(tapwright_docs ALL DEPENDS ${doc_dir}/tapwright.1.gz ${doc_dir}/changelog.gz)
install(FILES ${doc_dir}/tapwright.1.gz DESTINATION share/man/man1)
install(FILES ${doc_dir}/changelog.gz ${CMAKE_SOURCE_DIR}/packaging/debian/copyright DESTINATION share/doc/tapwright)

execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE TAPWRIGHT_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tapwright)
set(CPACK_PACKAGE_CONTACT "${TAPWRIGHT_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "barcode text from TCP cameras into files and keystrokes")
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
    "Tapwright receives the barcode text that up to two cameras send over TCP,"
    "cuts it into frames between a start text and an end text, and writes every"
    "frame to a time-stamped text file. It can also type the stream into the"
    "window that has the keyboard focus. It runs with a window, in the system"
    "tray, or headless as a systemd service.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
# The install scripts write the menu entry and the units with the final paths, under DESTDIR.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TAPWRIGHT_DEB_ARCH})
set(CPACK_DEBIAN_FILE_NAME tapwright_${PROJECT_VERSION}_${TAPWRIGHT_DEB_ARCH}.deb)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
include(CPack)

# Where cpack leaves the package.
set(TAPWRIGHT_DEB ${CPACK_PACKAGE_DIRECTORY}/${CPACK_DEBIAN_FILE_NAME})
