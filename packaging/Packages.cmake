# The Debian packages vexil3, vexil3d and vexil3d-system. packaging/make-packages configures for them and makes them.
set(components vexil3 vexil3d vexil3d-system)
set(VEXIL_PACKAGE_RELEASE 3 CACHE STRING "Release of the packages of this version")
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
# The prefix that the units are told is the one on the user's computer, not the folder in which a package is put together.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
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
# The desktop's own file chooser and colours, and the toolkit's words in the user's language.
set(CPACK_DEBIAN_VEXIL3_PACKAGE_RECOMMENDS "qt6-gtk-platformtheme, qt6-translations-l10n, qt6-wayland")
set(CPACK_COMPONENT_VEXIL3_DESCRIPTION "control panel for MIDI over the local network
Vexil III carries MIDI between the computers of a local network. Its driver
offers 64 virtual MIDI ports to every music program.

This is the control panel, in which the ports are named, enabled and
connected to ports on this and other computers.")

set(CPACK_DEBIAN_VEXIL3D_PACKAGE_NAME vexil3d)
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_SECTION sound)
# Its user managers start the driver; whoever has none starts it by hand.
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_RECOMMENDS "systemd")
set(CPACK_DEBIAN_VEXIL3D_PACKAGE_SUGGESTS "avahi-daemon, vexil3, vexil3d-system")
set(CPACK_COMPONENT_VEXIL3D_DESCRIPTION "driver for MIDI over the local network
Vexil III carries MIDI between the computers of a local network. Its driver
offers 64 virtual MIDI ports to every music program.

This is the driver, which starts with each user's session and uses the MIDI
system that the user has, with a command line for computers without a screen.
It speaks to other computers once its user lets it. The package vexil3 has the
control panel.")

set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_NAME vexil3d-system)
set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_DEPENDS "vexil3d (= ${PROJECT_VERSION}-${VEXIL_PACKAGE_RELEASE}),\
 systemd | systemd-standalone-sysusers | systemd-sysusers, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
# Until then the driver for all users was the only one, in the package vexil3d.
set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_BREAKS "vexil3d (<< 3.3.900-2~)")
set(CPACK_DEBIAN_VEXIL3D-SYSTEM_PACKAGE_REPLACES "vexil3d (<< 3.3.900-2~)")
set(CPACK_COMPONENT_VEXIL3D-SYSTEM_DESCRIPTION "one MIDI driver for all users of the computer
Vexil III carries MIDI between the computers of a local network. Its driver
offers 64 virtual MIDI ports to every music program.

With this package one driver starts with the computer, in place of each
user's own. It uses the ALSA sequencer. Members of the group vexil3 share one
configuration.")

foreach(component vexil3d vexil3d-system)
  string(TOUPPER ${component} upper)
  file(GLOB scripts CONFIGURE_DEPENDS debian/${component}.preinst debian/${component}.postinst debian/${component}.prerm
    debian/${component}.postrm debian/${component}.conffiles)
  set(control "")
  foreach(script ${scripts})
    get_filename_component(kind ${script} LAST_EXT)
    string(SUBSTRING ${kind} 1 -1 kind)
    set(permissions OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    if(NOT kind STREQUAL "conffiles")
      list(APPEND permissions OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
    endif()
    configure_file(${script} control/${component}/${kind} COPYONLY FILE_PERMISSIONS ${permissions})
    list(APPEND control ${CMAKE_CURRENT_BINARY_DIR}/control/${component}/${kind})
  endforeach()
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${control}")
endforeach()

include(CPack)
