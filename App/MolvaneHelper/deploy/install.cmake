# What an installation of the helper (the component "helper") lays down. Included where both programs are targets. The
# helper and its Info.plist are looked for where the build was configured to put them, so stage with DESTDIR, not with
# another prefix.

if(NOT MOLVANE_TEAM_ID MATCHES "^[A-Za-z0-9]+$" AND NOT MOLVANE_TEAM_ID STREQUAL "$(DEVELOPMENT_TEAM)")
  message(FATAL_ERROR "MOLVANE_TEAM_ID must be letters and digits, not \"${MOLVANE_TEAM_ID}\"")
endif()

set(deploy "${PROJECT_SOURCE_DIR}/App/MolvaneHelper/deploy")
set(generated "${PROJECT_BINARY_DIR}/deploy")
configure_file("${deploy}/Info.plist.in" "${generated}/Info.plist" @ONLY)
configure_file("${deploy}/com.molvane.helper.service.in" "${generated}/com.molvane.helper.service" @ONLY)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME helper)
install(TARGETS MolvaneHelper RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}")
install(TARGETS molvanectl RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES "${generated}/Info.plist" DESTINATION "${CMAKE_INSTALL_DATADIR}/molvane-helper")

if(APPLE)
  install(FILES "${deploy}/com.molvane.helper.plist" DESTINATION "${CMAKE_INSTALL_DATADIR}/molvane-helper")
  return()
endif()

# systemd and udev look into lib, whatever the distribution's library folder is called.
install(FILES "${deploy}/com.molvane.helper.socket" "${generated}/com.molvane.helper.service"
        DESTINATION lib/systemd/system)
install(FILES "${deploy}/60-com.molvane.helper.rules" DESTINATION lib/udev/rules.d)
install(FILES "${deploy}/com.molvane.helper.sysusers.conf" DESTINATION lib/sysusers.d RENAME com.molvane.helper.conf)

# The client gets the group that may connect, where that group is.
install(CODE "set(client \"${CMAKE_INSTALL_FULL_BINDIR}/molvanectl\")")
install(SCRIPT "${deploy}/grant-group.cmake")
