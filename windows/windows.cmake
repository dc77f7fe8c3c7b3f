# What the product is on Windows, for any of its compilers.
enable_language(RC)
# Windows 7, which is more than some compilers take for granted.
add_compile_definitions(_WIN32_WINNT=0x0601)

add_library(tessark SHARED libtessark/libtessark.cpp)
set_target_properties(tessark PROPERTIES PREFIX "")
target_include_directories(tessark PUBLIC libtessark)
target_link_libraries(tessark PUBLIC Qt5::Core PRIVATE ole32 shell32 uuid)

configure_file(windows/Mordwell.rc.in Mordwell.rc @ONLY)
add_executable(Mordwell WIN32 src/main.cpp src/tap.cpp ${CMAKE_BINARY_DIR}/Mordwell.rc)
target_link_libraries(Mordwell PRIVATE tessark Qt5::WinMain ole32 oleaut32 wbemuuid)
if(MSVC)
    # The manifest is in the resources already.
    target_link_options(Mordwell PRIVATE /MANIFEST:NO)
endif()

add_executable(libtessark_test tests/libtessark_test.cpp)
target_link_libraries(libtessark_test PRIVATE tessark)
add_test(NAME libtessark COMMAND libtessark_test)
set_tests_properties(libtessark PROPERTIES TIMEOUT 600
                     ENVIRONMENT_MODIFICATION "PATH=path_list_prepend:$<TARGET_FILE_DIR:Qt5::Core>")
