# Stand-ins for what the program finds on Windows. Whatever links to them brings the definition of host().
add_library(standins STATIC simulation/windows.cpp simulation/wmi.cpp)
target_include_directories(standins PUBLIC simulation/sdk simulation)
target_link_libraries(standins PUBLIC Qt5::Core)

add_library(tessark SHARED simulation/libtessark.cpp)
target_include_directories(tessark PUBLIC libtessark PRIVATE simulation simulation/sdk)
target_link_libraries(tessark PUBLIC Qt5::Core)

add_executable(Mordwell src/main.cpp src/tap.cpp simulation/machine.cpp simulation/machine_host.cpp)
target_link_libraries(Mordwell PRIVATE standins tessark)
