# What the program needs on Windows, with any compiler.
enable_language(RC)
# Windows 7, since the default of some compilers is older.
add_compile_definitions(_WIN32_WINNT=0x0601)

add_library(tessark SHARED libtessark/libtessark.cpp)
set_target_properties(tessark PROPERTIES PREFIX "")
target_include_directories(tessark PUBLIC libtessark)
target_link_libraries(tessark PUBLIC Qt5::Core PRIVATE ole32 shell32 uuid)

configure_file(packaging/version.rc.in Mordwell.rc @ONLY)
set_target_properties(Mordwell PROPERTIES WIN32_EXECUTABLE ON)
target_sources(Mordwell PRIVATE ${CMAKE_BINARY_DIR}/Mordwell.rc)
target_link_libraries(Mordwell PRIVATE Qt5::WinMain ole32 oleaut32 wbemuuid)
if(MSVC)
    # The resources already contain the manifest.
    target_link_options(Mordwell PRIVATE /MANIFEST:NO)
endif()
