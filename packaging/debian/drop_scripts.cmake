# CPack has every package with libraries below /usr/lib call ldconfig. Ours are private and found by
# their neighbours, so the scripts go: a package without any can't fail half installed.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(unpacked ${package}.unpacked)
  file(REMOVE_RECURSE ${unpacked})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${unpacked} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${unpacked}/DEBIAN/postinst ${unpacked}/DEBIAN/postrm)
  execute_process(COMMAND dpkg-deb --root-owner-group -Z${CPACK_DEBIAN_COMPRESSION_TYPE} --build
                          ${unpacked} ${package}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${unpacked})
endforeach()
