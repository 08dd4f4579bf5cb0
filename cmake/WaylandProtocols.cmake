# Client code of Wayland protocols, made from their descriptions at build time.
pkg_check_modules(WAYLAND_CLIENT REQUIRED IMPORTED_TARGET wayland-client)
pkg_get_variable(WAYLAND_SCANNER wayland-scanner wayland_scanner)
pkg_get_variable(WAYLAND_PROTOCOLS wayland-protocols pkgdatadir)
pkg_get_variable(PLASMA_PROTOCOLS plasma-wayland-protocols pkgdatadir)
if(NOT PLASMA_PROTOCOLS) # this package comes with a CMake configuration only
  set(PLASMA_PROTOCOLS /usr/share/plasma-wayland-protocols)
endif()
set(WLR_PROTOCOLS ${CMAKE_SOURCE_DIR}/packaging/protocols)

# A static library of the descriptions' glue, with a header <name>.h (and, for tests that play a
# compositor, <name>-server.h) for each <name>.xml.
function(mnemora_wayland_protocols target)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target})
  file(MAKE_DIRECTORY ${folder})
  set(made)
  foreach(description ${ARGN})
    get_filename_component(name ${description} NAME_WE)
    foreach(output "client-header|${name}.h" "server-header|${name}-server.h" "private-code|${name}.c")
      string(REPLACE "|" ";" output ${output})
      list(GET output 0 kind)
      list(GET output 1 file)
      add_custom_command(
        OUTPUT ${folder}/${file}
        COMMAND ${WAYLAND_SCANNER} ${kind} ${description} ${folder}/${file}
        DEPENDS ${description}
        VERBATIM)
      list(APPEND made ${folder}/${file})
    endforeach()
  endforeach()
  add_library(${target} STATIC ${made})
  target_include_directories(${target} SYSTEM PUBLIC ${folder})
  target_link_libraries(${target} PUBLIC PkgConfig::WAYLAND_CLIENT)
endfunction()
