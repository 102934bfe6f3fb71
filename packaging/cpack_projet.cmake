# Read by cpack for each generator. A Debian package never owns files under /usr/local, which
# belongs to the administrator: configure with -DCMAKE_INSTALL_PREFIX=/usr (the default).
if(CPACK_GENERATOR STREQUAL "DEB" AND CPACK_PACKAGING_INSTALL_PREFIX MATCHES "^/usr/local(/|$)")
    message(FATAL_ERROR "a Debian package cannot install under ${CPACK_PACKAGING_INSTALL_PREFIX}: "
        "configure the build with -DCMAKE_INSTALL_PREFIX=/usr")
endif()
