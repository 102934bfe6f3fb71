# Where the programs install and how the Debian package is made. Included before the sources:
# what the programs find at run time (the catalogues, the executable that the login entries
# start) is fixed when the build is configured.

# The package is made from this very build, so the prefix is the package's unless one is given:
# a hand install elsewhere says so with -DCMAKE_INSTALL_PREFIX=/usr/local.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
    set(CMAKE_INSTALL_PREFIX "/usr" CACHE PATH "Installation prefix" FORCE)
endif()
include(GNUInstallDirs)

# The systemd units of the packages, under the prefix as it stands; not GNUInstallDirs' LIBDIR,
# which holds the architecture's folder on Debian. The agent's user unit is left disabled (the
# guardian starts the agent); the guardian's system unit is enabled by the package.
set(TAVI_DOSSIER_UNITES "" CACHE PATH
    "Where the agent's systemd user unit is installed (empty: PREFIX/lib/systemd/user)")
if(NOT TAVI_DOSSIER_UNITES)
    set(TAVI_DOSSIER_UNITES "${CMAKE_INSTALL_PREFIX}/lib/systemd/user")
endif()
set(TAVI_DOSSIER_UNITES_SYSTEME "" CACHE PATH
    "Where the guardian's systemd system unit is installed (empty: PREFIX/lib/systemd/system)")
if(NOT TAVI_DOSSIER_UNITES_SYSTEME)
    set(TAVI_DOSSIER_UNITES_SYSTEME "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
endif()
# Where the guardian reads its configuration by default, whatever the prefix: the unit's
# ConfigurationDirectory= is always under /etc.
set(TAVI_DOSSIER_CONFIG_GARDIEN "/etc/tavi-home")

set(TAVI_HOME_INSTALLE "${CMAKE_INSTALL_FULL_BINDIR}/tavi-home")
set(TAVI_GARDIEN_INSTALLE "${CMAKE_INSTALL_FULL_BINDIR}/tavi-gardien")
# The units are written from templates that quote nothing: a path that systemd would need
# escaped (a space, %, a quote, $, =...) is refused here rather than written in a form that the
# login agent would not take for its own, or that would start another program.
foreach(chemin IN ITEMS "${TAVI_HOME_INSTALLE}" "${TAVI_GARDIEN_INSTALLE}" "${TAVI_DOSSIER_UNITES}"
        "${TAVI_DOSSIER_UNITES_SYSTEME}")
    if(NOT chemin MATCHES "^/[A-Za-z0-9._/+-]+$")
        message(FATAL_ERROR "Installation path \"${chemin}\" must be absolute and hold only "
            "letters, digits and . _ / + -")
    endif()
endforeach()

set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "tavi-home")
set(CPACK_PACKAGE_VENDOR "Tavi")
set(CPACK_PACKAGE_CONTACT "Tavi Home <equipe@tavi.invalid>")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "family screen-time agent for the child's computer")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
# Only the programs and their desktop files, whatever else a folder of the tree may install.
set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};${PROJECT_NAME};tavi-home;/")
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/packaging/cpack_projet.cmake")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
# Lines under 80 columns once dpkg indents them.
set(CPACK_PACKAGE_DESCRIPTION
    "Tavi Home runs in the child's desktop session and pairs the computer with the
family's account. It applies the rules the parents set (a daily limit, time
ranges, limits per application, a pause, a filter of sites) against a clock
kept in step with the server, and counts the time the computer is really used.
The child sees the time left in the notification area and can ask for more.
A root service, tavi-gardien, holds the family link and starts the agent in
every session of a paired account.
The package also holds tavi, the diagnostic command line, and tavi-famille,
the reference family server.")
# dpkg-shlibdeps finds the libraries the programs link, and with them what they load at run
# time: Qt's X11 platform plugin comes with libqt6gui6, the time zones that tavi-famille reads
# with libdate-tz3. The faces of the child's windows are recommended (the agent draws without
# them), and a host for its icon: a stock GNOME shows none without the AppIndicator extension,
# which every other desktop's panel makes needless (apt installs the first alternative only
# where none is there). Qt's Wayland plugin is only suggested: it brings Qt Quick along, and without it Qt runs
# the agent through XWayland, on the X11 paths that the tests drive.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-comfortaa, fonts-noto-color-emoji, \
gnome-shell-extension-appindicator | plasma-workspace | xfce4-panel | mate-panel | cinnamon | \
lxqt-panel | lxpanel")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# A file under /etc belongs to the administrator once installed: an upgrade keeps their change.
# The maintainer scripts enable and start the guardian, remove the earlier autostart entry, and
# a purge forgets the paired accounts.
file(WRITE "${PROJECT_BINARY_DIR}/packaging/debian/conffiles"
    "${TAVI_DOSSIER_CONFIG_GARDIEN}/tavi-home.conf\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/packaging/debian/conffiles")
foreach(script preinst postinst prerm postrm)
    list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/${script}")
endforeach()
include(CPack)
