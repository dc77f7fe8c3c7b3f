enable_language(RC)
# Without time stamps, the same sources give the same bytes.
add_link_options(-Wl,--no-insert-timestamp)

add_library(tessark SHARED libtessark/libtessark.cpp)
set_target_properties(tessark PROPERTIES PREFIX "")
target_include_directories(tessark PUBLIC libtessark)
target_link_libraries(tessark PUBLIC Qt5::Core PRIVATE ole32 shell32 uuid)

configure_file(windows/Mordwell.rc.in Mordwell.rc @ONLY)
add_executable(Mordwell WIN32 src/main.cpp src/tap.cpp ${CMAKE_BINARY_DIR}/Mordwell.rc)
target_link_libraries(Mordwell PRIVATE tessark Qt5::WinMain ole32 oleaut32 wbemuuid)

# The package.
foreach(dll libgcc_s_seh-1.dll libstdc++-6.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll} OUTPUT_VARIABLE file
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_STRIP} -o ${CMAKE_BINARY_DIR}/${dll} ${file}
                    COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND runtime_dlls ${CMAKE_BINARY_DIR}/${dll})
endforeach()
get_target_property(qt_dll Qt5::Core LOCATION)
get_filename_component(qt_folder ${qt_dll}/../.. ABSOLUTE)
install(TARGETS Mordwell tessark RUNTIME DESTINATION .)
install(FILES ${qt_dll} ${runtime_dlls} DESTINATION .)
configure_file(windows/README.txt.in README.txt @ONLY NEWLINE_STYLE CRLF)
install(FILES ${CMAKE_BINARY_DIR}/README.txt DESTINATION .)
install(FILES ${qt_folder}/LICENSE.LGPL3 ${qt_folder}/LICENSE.GPL3 DESTINATION licences)
install(FILES /usr/share/doc/qtbase5-dev/copyright DESTINATION licences RENAME Qt5Core.txt)
install(FILES /usr/share/doc/gcc-mingw-w64-base/copyright DESTINATION licences RENAME gcc-runtime.txt)
install(FILES /usr/share/doc/mingw-w64-x86-64-dev/copyright DESTINATION licences RENAME mingw-w64.txt)
set(CPACK_GENERATOR ZIP)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_FILE_NAME Mordwell-${PROJECT_VERSION}-win64)
include(CPack)

# What the tests under Wine need: the tools' double under each of their names, and the probe of tessark.dll.
add_executable(double simulation/double.cpp simulation/machine.cpp)
target_link_libraries(double PRIVATE Qt5::Core)
add_executable(libtessark_test tests/libtessark_test.cpp)
target_link_libraries(libtessark_test PRIVATE tessark)

enable_testing()
set(wine ${CMAKE_SOURCE_DIR}/windows/wine.sh)
add_test(NAME libtessark COMMAND ${wine} ${CMAKE_BINARY_DIR}/libtessark_test.exe)
add_test(NAME program COMMAND ${CMAKE_SOURCE_DIR}/build/default/tests/program_test)
set_tests_properties(program PROPERTIES ENVIRONMENT MORDWELL_COMMAND=${CMAKE_SOURCE_DIR}/windows/machine.sh)
set_tests_properties(libtessark program PROPERTIES RUN_SERIAL ON TIMEOUT 600)
