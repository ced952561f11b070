# The Debian package: "cpack" in the build directory.
set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON) # for what is below no prefix
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VENDOR Nimbo)
set(CPACK_STRIP_FILES ON)
set(CPACK_LARKSPUR_STRIP ${CMAKE_STRIP})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/complete.cmake)
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Nimbo developers <larkspur@nimbo.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "systemd | systemd-standalone-sysusers, systemd | systemd-standalone-tmpfiles")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "apache2, perl, php-cli")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/conffiles ${CMAKE_CURRENT_LIST_DIR}/postinst
  ${CMAKE_CURRENT_LIST_DIR}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "deploys packaged web applications into virtual hosts")
set(CPACK_PACKAGE_DESCRIPTION
"Brings packaged web applications to the sites of a server, with their scripts
and the Apache fragments that their URL mappings need.
.
larkspur-site is for administrators: it installs, upgrades, verifies and
removes an application, and takes back a change that fails or is cut off; what
visitors wrote stays.  larkspur-preview shows beforehand what a package will
do.  larkspur makes the single steps, for the Nimbo web-hosting control panel.
.
Root runs them; what they do to a site they do as the site's own account.")
include(CPack)
