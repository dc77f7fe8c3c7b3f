# Windows on Linux: the SDK's headers with fakes of COM and WMI, and libtessark on the simulated machine.
add_library(com STATIC simulation/com.cpp simulation/wmi.cpp)
target_include_directories(com PUBLIC simulation/sdk simulation libtessark)
target_link_libraries(com PUBLIC Qt5::Core)

add_library(tessark STATIC simulation/host.cpp simulation/machine.cpp)
target_link_libraries(tessark PUBLIC com)
