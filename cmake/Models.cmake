# Models and inference runtimes in the build tree and in an installation: links to the files of
# scripts/setup while developing, real files once installed, and beside them the manifest by which
# the program knows whether they are all there and intact.

# Links FILES into FOLDER of the tree and writes their manifest under the name MANIFEST.
function(mnemora_manifest_folder target)
  cmake_parse_arguments(ARG "" "FOLDER;MANIFEST" "FILES;PROPERTIES" ${ARGN})
  set(folder ${CMAKE_BINARY_DIR}/${ARG_FOLDER})
  set(links)
  foreach(file ${ARG_FILES})
    if(NOT EXISTS ${file})
      message(FATAL_ERROR "${file} is missing: run scripts/setup first")
    endif()
    get_filename_component(name ${file} NAME)
    list(APPEND links COMMAND ${CMAKE_COMMAND} -E create_symlink ${file} ${folder}/${name})
  endforeach()
  add_custom_command(
    OUTPUT ${folder}/${ARG_MANIFEST}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    ${links}
    COMMAND model-manifest ${folder}/${ARG_MANIFEST} ${ARG_PROPERTIES} -- ${ARG_FILES}
    DEPENDS model-manifest ${ARG_FILES}
    COMMENT "Listing ${ARG_FOLDER}/${ARG_MANIFEST}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS ${folder}/${ARG_MANIFEST})
  install(FILES ${ARG_FILES} ${folder}/${ARG_MANIFEST} DESTINATION ${ARG_FOLDER})
endfunction()

# mnemora_model(NAME FILES file... [PROPERTIES name=value...])
# The model NAME in share/mnemora/models/NAME, its list in the file "manifest" there. Whatever loads
# it depends on the target mnemora-model-NAME.
function(mnemora_model name)
  mnemora_manifest_folder(mnemora-model-${name} FOLDER ${MNEMORA_SHARE_SUBDIR}/models/${name}
                          MANIFEST manifest ${ARGN})
endfunction()

# mnemora_runtime(NAME FILES file...)
# Shared libraries of an inference runtime in lib/mnemora/runtime, their list in NAME.manifest
# there; target mnemora-runtime-NAME.
function(mnemora_runtime name)
  mnemora_manifest_folder(mnemora-runtime-${name} FOLDER ${MNEMORA_LIB_SUBDIR}/runtime
                          MANIFEST ${name}.manifest ${ARGN})
endfunction()
