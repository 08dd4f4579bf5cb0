# Debug information names files from the top of the sources, so that a commit gives the same
# binaries wherever the sources, the build and what scripts/setup fetched lie. A debugger started at
# the top of the sources finds them. The last map that fits is the one that counts.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  # Behind a link some headers are known by the place itself.
  file(REAL_PATH ${MNEMORA_DEPS} fetched)
  foreach(folder ${fetched} ${MNEMORA_DEPS})
    add_compile_options(-ffile-prefix-map=${folder}=./.deps)
  endforeach()
  add_compile_options(-ffile-prefix-map=${CMAKE_BINARY_DIR}=./build)
endif()
