# What the targets link. Debian's packages come by pkg-config, the inference runtime and the
# weights from the folder that scripts/setup fills.
set(MNEMORA_DEPS ${CMAKE_SOURCE_DIR}/.deps CACHE PATH "Folder filled by scripts/setup")

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n)
find_package(SQLite3 3.40 REQUIRED)
pkg_check_modules(XXHASH REQUIRED IMPORTED_TARGET libxxhash)

# The C++ API of the OpenVINO wheel; the interface target only, its libraries travel in
# lib/mnemora/runtime.
add_library(openvino-runtime INTERFACE)
target_include_directories(openvino-runtime SYSTEM INTERFACE ${MNEMORA_DEPS}/openvino/include)
target_link_libraries(openvino-runtime INTERFACE ${MNEMORA_DEPS}/openvino/libs/libopenvino.so.2640)

find_package(GTest)
