# mingw-w64 on Debian; MORDWELL_TARGET is x86_64-w64-mingw32 or i686-w64-mingw32, MORDWELL_QT the folder of its Qt.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MORDWELL_TARGET)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_CXX_COMPILER ${MORDWELL_TARGET}-g++)
set(CMAKE_RC_COMPILER ${MORDWELL_TARGET}-windres)
# The compiler's runtime is linked statically. Without time stamps, the same sources result in the same bytes.
foreach(type EXE SHARED MODULE)
    set(CMAKE_${type}_LINKER_FLAGS_INIT "-static -Wl,--no-insert-timestamp")
endforeach()
set(CMAKE_FIND_ROOT_PATH /usr/${MORDWELL_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# The order of the imports in the binaries depends on the path of Qt. Through a link in the build folder, that path is the
# same for every user.
if(MORDWELL_QT)
    file(CREATE_LINK ${MORDWELL_QT} ${CMAKE_BINARY_DIR}/qt SYMBOLIC)
    set(CMAKE_PREFIX_PATH ${CMAKE_BINARY_DIR}/qt)
endif()
