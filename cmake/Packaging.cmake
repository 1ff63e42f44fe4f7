# A Debian package of the desktop application: `scripts/package` builds a
# Release tree and runs cpack, which writes zettly_<version>_<arch>.deb.

set(ZETTLY_PACKAGE_MAINTAINER "The Zettly developers <dev@zettly.org>"
    CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zettly)
set(CPACK_PACKAGE_VENDOR "The Zettly developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "clipboard history for the Linux desktop")
# CPack indents the lines for the control file and writes the empty line
# between the paragraphs as " .".
set(CPACK_PACKAGE_DESCRIPTION
"Zettly keeps what you copy (text, links, numbers, images) in a local
history and opens a small window at the mouse pointer on Alt+V. Type to
search, pick an entry and it goes back on the clipboard or is pasted into
the window you were in.

Entries can be pinned, named and filed in categories. Copies from password
managers, ignored applications and text matching your own patterns are
never saved. Zettly sits in the system tray. On X11 it has a shortcut of
its own and pastes for you; where a desktop does not allow that, it says
so.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${ZETTLY_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Library dependencies come from dpkg-shlibdeps (dpkg-dev); the tray icons'
# SVG renderer is linked, not loaded as a plugin, so it is among them. Qt's
# own catalogues (German dialog buttons) are data files it cannot see, and
# its platform plugins are loaded at run time: the X11 one is needed, the
# Wayland one serves Wayland sessions.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-translations-l10n, qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
