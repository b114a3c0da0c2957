# cpack runs it on its packages, for two settings that this CPack lacks: libraries of several architectures
# may be installed beside each other, and a trigger calls ldconfig, not maintainer scripts.
foreach(package ${CPACK_PACKAGE_FILES})
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  if(NOT package MATCHES "/fluviafs-tools_[^/]*$")
    file(READ ${tree}/DEBIAN/control control)
    string(REGEX REPLACE "\nPriority:" "\nMulti-Arch: same\nPriority:" control "${control}")
    file(WRITE ${tree}/DEBIAN/control "${control}")
  endif()
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
