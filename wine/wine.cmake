# What stands in for Windows under Wine: the tools' double and WMI's locator, on the simulated machine.
add_executable(double simulation/double.cpp simulation/machine.cpp)
target_link_libraries(double PRIVATE Qt5::Core)
add_library(locator MODULE simulation/locator.cpp simulation/machine.cpp simulation/wmi.cpp)
set_target_properties(locator PROPERTIES PREFIX "")
target_link_libraries(locator PRIVATE Qt5::Core oleaut32 uuid)
# COM looks for the names of the entry points without the suffix of their calling convention.
target_link_options(locator PRIVATE -Wl,--kill-at)

get_filename_component(kind ${CMAKE_BINARY_DIR} NAME)
set_target_properties(libtessark_test PROPERTIES CROSSCOMPILING_EMULATOR "${CMAKE_SOURCE_DIR}/wine/wine.sh;${kind}")
set(native ${CMAKE_SOURCE_DIR}/build/default)
add_test(NAME program COMMAND ${native}/tests/program_test)
set_tests_properties(program PROPERTIES TIMEOUT 600 ENVIRONMENT
    "MORDWELL_NATIVE='${native}/Mordwell';MORDWELL_COMMAND='${CMAKE_SOURCE_DIR}/wine/machine.sh' ${kind}")
add_test(NAME package COMMAND ${CMAKE_SOURCE_DIR}/tests/package_test.sh ${kind} ${MORDWELL_TARGET})
