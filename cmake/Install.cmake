# Installation and the Debian package: the library with its SONAME links, the header, a
# pkg-config file, the tools and commented example configuration files.
include(GNUInstallDirs)

install(TARGETS snmplumi
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/snmplumi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The host program loads the library with dlopen: it finds it beside its own prefix, wherever
# that was installed.
file(RELATIVE_PATH _snmplumi_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(snmplumi-host PROPERTIES INSTALL_RPATH "$ORIGIN/${_snmplumi_bin_to_lib}")
install(TARGETS snmplumi-host snmplumi-logview snmplumi-upssim
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES
    ${PROJECT_SOURCE_DIR}/packaging/examples/config.apc
    ${PROJECT_SOURCE_DIR}/packaging/examples/snmp.apc
    ${PROJECT_SOURCE_DIR}/packaging/examples/ac_e_net.apc
    ${PROJECT_SOURCE_DIR}/tools/upssim/example.scenario
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# snmplumi.pc names the prefix the files land under, which `cmake --install --prefix` may change
# after configuration: it is written when installing.
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(_snmplumi_pc_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(_snmplumi_pc_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()
set(_snmplumi_pc ${PROJECT_BINARY_DIR}/packaging/snmplumi.pc)
install(CODE "
  set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
  set(libdir [[${_snmplumi_pc_LIBDIR}]])
  set(includedir [[${_snmplumi_pc_INCLUDEDIR}]])
  set(PROJECT_VERSION ${PROJECT_VERSION})
  configure_file(\"${PROJECT_SOURCE_DIR}/packaging/snmplumi.pc.in\" \"${_snmplumi_pc}\" @ONLY)
  string(REPLACE [[\${prefix}]] \"\${prefix}\" pcdir \"\${libdir}/pkgconfig\")
  file(INSTALL \"${_snmplumi_pc}\" DESTINATION \"\${pcdir}\")
")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME snmplumi)
set(CPACK_PACKAGE_VENDOR "snmplumi")
set(CPACK_PACKAGE_CONTACT "snmplumi maintainers <snmplumi@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "UPS network cards driven over SNMP v1 as one local power control unit")
set(CPACK_PACKAGE_DESCRIPTION
    "libsnmplumi lets a UPS management service drive UPS network cards over SNMP v1 as if they\
 were one locally attached power control unit. The package holds the library, its C header\
 and pkg-config file, a host program, a ring log viewer and a UPS card simulator.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# dpkg-shlibdeps names the packages of the libraries linked (libsnmp40, libc6, libstdc++6);
# the shlibs file and the ldconfig trigger come with the library.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
