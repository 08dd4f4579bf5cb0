# At installation, when the packed extension's id is known: the native-messaging host's manifest.
# https://developer.chrome.com/docs/extensions/develop/concepts/native-messaging
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(READ "@browser_data@/extension.json" described)
  string(JSON id GET "${described}" id)
  set(manifest "@CMAKE_CURRENT_BINARY_DIR@/app.mnemora.pages.json")
  file(WRITE "${manifest}" "{
    \"allowed_origins\": [\"chrome-extension://${id}/\"],
    \"description\": \"Tells Mnemora which page is in front\",
    \"name\": \"app.mnemora.pages\",
    \"path\": \"/usr/@MNEMORA_LIBEXEC_SUBDIR@/mnemora-browser-host\",
    \"type\": \"stdio\"
}
")
  foreach(folder IN ITEMS @MNEMORA_HOST_MANIFEST_DIRS@)
    file(INSTALL "${manifest}" DESTINATION "${folder}")
  endforeach()
endif()
