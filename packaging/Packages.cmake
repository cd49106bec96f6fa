# The Debian packages vexil3 and vexil3d. packaging/make-packages configures for them and makes them.
set(components vexil3 vexil3d)
set(VEXIL_PACKAGE_RELEASE 1 CACHE STRING "Release of the packages of this version")
foreach(component ${components})
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${component})
  install(FILES debian/copyright DESTINATION ${documents} COMPONENT ${component})
  install(FILES debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${component}
    COMPONENT ${component})
  vexil_install_compressed(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog ${documents} ${component} changelog.Debian)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME vexil3)
set(CPACK_PACKAGE_VENDOR "The Vexil III developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
# What a maintainer made as root or not: the same permissions.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VEXIL_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The Vexil III developers <vexil3@sonavert.com>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_VEXIL3_PACKAGE_NAME vexil3)
set(CPACK_DEBIAN_VEXIL3_PACKAGE_SECTION sound)
# The panel keeps its configuration where the service of the same version reads it.
set(CPACK_DEBIAN_VEXIL3_PACKAGE_DEPENDS "vexil3d (= ${PROJECT_VERSION}-${VEXIL_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_VEXIL3_PACKAGE_RECOMMENDS "qt6-wayland")
set(CPACK_COMPONENT_VEXIL3_DESCRIPTION "control panel for MIDI over the local network
Vexil III carries MIDI between the computers of a local network. Its driver
offers 64 virtual MIDI ports to every music program.

This is the control panel, in which the ports are named, enabled and
connected to ports on this and other computers. The driver of this version
carries MIDI within one computer.")

set(CPACK_DEBIAN_VEXIL3D_PACKAGE_NAME vexil3d)
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_DEPENDS
  "systemd | systemd-standalone-sysusers | systemd-sysusers, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_SUGGESTS "vexil3")
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_BINARY_DIR}/control/postinst;\
${CMAKE_CURRENT_BINARY_DIR}/control/prerm;${CMAKE_CURRENT_BINARY_DIR}/control/postrm;\
${CMAKE_CURRENT_BINARY_DIR}/control/conffiles")
set(CPACK_COMPONENT_VEXIL3D_DESCRIPTION "driver for MIDI over the local network
Vexil III carries MIDI between the computers of a local network. Its driver
offers 64 virtual MIDI ports to every music program.

This is the driver as a service, with a command line for computers without
a screen. This version carries MIDI within one computer. The package vexil3
has the control panel.")
foreach(script postinst prerm postrm)
  configure_file(debian/vexil3d.${script} control/${script} COPYONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
configure_file(debian/vexil3d.conffiles control/conffiles COPYONLY
  FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

include(CPack)
