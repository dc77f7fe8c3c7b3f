# What the program needs on Windows, with any compiler.
enable_language(RC)
# Windows 7, since the default of some compilers is older.
add_compile_definitions(_WIN32_WINNT=0x0601)
add_subdirectory(libtessark)

# add_version_resource(TARGET FILE TYPE DESCRIPTION): adds the version resource that Explorer shows, and by which Windows
# Installer decides whether to replace the file, and the manifest that the variable MANIFEST names, if any.
function(add_version_resource target file type description)
    configure_file(packaging/version.rc.in ${target}.rc @ONLY)
    target_sources(${target} PRIVATE ${CMAKE_BINARY_DIR}/${target}.rc)
endfunction()
add_version_resource(tessark tessark.dll VFT_DLL "Host library of the Halvane Relay Kit")
set(MANIFEST ${CMAKE_SOURCE_DIR}/packaging/Mordwell.manifest)
add_version_resource(Mordwell Mordwell.exe VFT_APP "${PROJECT_DESCRIPTION}")

set_target_properties(Mordwell PROPERTIES WIN32_EXECUTABLE ON)
target_link_libraries(Mordwell PRIVATE Qt5::WinMain ole32 oleaut32 wbemuuid)
if(MSVC)
    # The manifest is among the resources already.
    target_link_options(Mordwell PRIVATE /MANIFEST:NO)
endif()
