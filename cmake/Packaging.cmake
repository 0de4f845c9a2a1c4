# The Linux package: vigilcrest-server, a Debian package made by CPack
# (`cmake --build --preset linux --target package` leaves
# build/linux/vigilcrest-server_<version>_<arch>.deb).
#
# The programs, the extension module and the default sections have their
# install() rules beside their targets; this file adds what belongs to the
# machine rather than to one program: the systemd units, the user, the
# option files in /etc/default and the documentation. scripts/package_test.sh
# opens the package and runs what it holds.
#
# The package installs under /usr (CPACK_PACKAGING_INSTALL_PREFIX below).
# The unit files name /usr/bin/... and /usr/lib/vigilcrest/... as they are:
# a `cmake --install` under another prefix installs them unchanged, so on
# a real machine install the package, not the tree.

set(VGCR_PACKAGING_DIR ${PROJECT_SOURCE_DIR}/packaging)

# Documentation: the README and the design notes.
file(GLOB vgcr_docs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${vgcr_docs} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vigilcrest)

# systemd: the two services and the user they run as. lib/, not
# CMAKE_INSTALL_LIBDIR: systemd looks in /usr/lib whatever the multiarch
# layout.
install(FILES ${VGCR_PACKAGING_DIR}/systemd/vgcr-cmdhandler.service ${VGCR_PACKAGING_DIR}/systemd/isapi-host.service
        DESTINATION lib/systemd/system)
install(FILES ${VGCR_PACKAGING_DIR}/sysusers.d/vigilcrest.conf DESTINATION lib/sysusers.d)

# The option files the units read. /etc is not under the prefix /usr, and
# an absolute DESTINATION /etc/default would write into the real /etc of
# whoever runs `cmake --install --prefix SCRATCH` without DESTDIR. So the
# folder is chosen when installing, as GNUInstallDirs does for sysconfdir:
# a prefix of /usr (the package: CPack's DEB generator installs with
# DESTDIR set to its staging folder and the prefix /usr) or SOMETHING/usr
# (a scratch root) puts them in the etc beside it, /etc or SOMETHING/etc;
# any other prefix (/usr/local, /opt/...) in PREFIX/etc. file(INSTALL)
# honours DESTDIR and the install manifest as install(FILES) would.
install(CODE "
  if(CMAKE_INSTALL_PREFIX MATCHES \"(^|/)usr/*\$\")
    get_filename_component(vgcr_etc \"\${CMAKE_INSTALL_PREFIX}/../etc\" ABSOLUTE)
  else()
    set(vgcr_etc \"\${CMAKE_INSTALL_PREFIX}/etc\")
  endif()
  file(INSTALL DESTINATION \"\${vgcr_etc}/default\" TYPE FILE
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
       FILES \"${VGCR_PACKAGING_DIR}/default/isapi-host\" \"${VGCR_PACKAGING_DIR}/default/vgcr-cmdhandler\")
")

# The package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vigilcrest-server)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Vigilcrest management server: HTTP front door and command-handler service")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "The isapiClient extension hosted by isapi-host (HTTP, on libmicrohttpd)\n"
       "and the vgcr-cmdhandler service behind it (SQLite, OpenSSL), with their\n"
       "systemd units. Installing starts nothing: review /etc/default/isapi-host\n"
       "and /etc/default/vgcr-cmdhandler, then\n"
       "systemctl enable --now vgcr-cmdhandler isapi-host.")
set(VGCR_PACKAGE_MAINTAINER "Vigilcrest server team <server-team@vigilcrest.example>"
    CACHE STRING "The Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT ${VGCR_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${VGCR_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # vigilcrest-server_1.0.0_amd64.deb
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The build type keeps debug information (RelWithDebInfo); the package does
# not carry it. The unstripped programs of the same build stay in the build
# folder, with the same build id, for a debugger.
set(CPACK_STRIP_FILES ON)

# Dependencies: dpkg-shlibdeps (dpkg-dev) reads them off the programs and
# the module, with the versions their symbols need. Without it the package
# names Debian 12's libraries by hand, without versions.
find_program(VGCR_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(VGCR_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(vgcr_library_depends "")
else()
  message(STATUS "dpkg-shlibdeps not found (package dpkg-dev): the package's library dependencies are Debian 12's, unversioned")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(vgcr_library_depends "libmicrohttpd12, libsqlite3-0, libssl3, libjsoncpp25, libstdc++6, libgcc-s1, libc6, ")
endif()
# postinst makes the user with systemd-sysusers (systemd provides it), or
# with adduser where that is missing; shlibdeps adds its findings after.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${vgcr_library_depends}systemd-sysusers | adduser")

# Maintainer scripts and conffiles (the two /etc/default files: an upgrade
# keeps the administrator's changes). Strict permissions: the scripts 0755
# and conffiles 0644 whatever the modes in the working tree.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${VGCR_PACKAGING_DIR}/debian/postinst ${VGCR_PACKAGING_DIR}/debian/prerm ${VGCR_PACKAGING_DIR}/debian/postrm
    ${VGCR_PACKAGING_DIR}/debian/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

# `package_source` would otherwise take the build folders too.
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_IGNORE_FILES "/build/" "/\\\\.git/" "/var/")

include(CPack)
