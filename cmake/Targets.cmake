# The build tree has the shape of an installation (bin, lib/mnemora, libexec/mnemora,
# share/mnemora), so that everything runs in place and finds its parts by relative paths.
set(MNEMORA_LIB_SUBDIR lib/mnemora)
set(MNEMORA_LIBEXEC_SUBDIR libexec/mnemora)
set(MNEMORA_SHARE_SUBDIR share/mnemora)

set(CMAKE_SKIP_BUILD_RPATH OFF)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

# A shared module of ours in lib/mnemora, found by its neighbours through $ORIGIN.
function(mnemora_module name)
  add_library(${name} SHARED ${ARGN})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE mnemora-warnings)
  set_target_properties(
    ${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${MNEMORA_LIB_SUBDIR}
                       INSTALL_RPATH "$ORIGIN;$ORIGIN/runtime")
  install(TARGETS ${name} LIBRARY DESTINATION ${MNEMORA_LIB_SUBDIR})
endfunction()

# A static part that one executable or module takes in whole; SOURCES follow the name.
function(mnemora_part name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE mnemora-warnings)
endfunction()

# A program in SUBDIR (bin or libexec/mnemora) of the tree.
function(mnemora_program name subdir)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE mnemora-warnings)
  string(REGEX REPLACE "[^/]+" ".." up ${subdir})
  set_target_properties(
    ${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${subdir}
                       INSTALL_RPATH "$ORIGIN/${up}/${MNEMORA_LIB_SUBDIR};$ORIGIN/${up}/${MNEMORA_LIB_SUBDIR}/runtime")
endfunction()

# A program of the tests, in a folder of the build tree of their own.
function(mnemora_test_program name)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE mnemora-warnings mnemora-core)
  set_target_properties(
    ${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
                       INSTALL_RPATH "$ORIGIN/../${MNEMORA_LIB_SUBDIR};$ORIGIN/../${MNEMORA_LIB_SUBDIR}/runtime")
endfunction()

# One test program of a folder; every TEST in it is a test of ctest's own.
function(mnemora_test name)
  mnemora_test_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest_main)
endfunction()
