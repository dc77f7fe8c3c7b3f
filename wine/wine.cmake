# The fake tools and the fake of WMI's locator, which act on the simulated machine under Wine.
add_executable(fake_tool wine/fake_tool.cpp simulation/machine.cpp)
target_include_directories(fake_tool PRIVATE simulation)
target_link_libraries(fake_tool PRIVATE Qt5::Core)
add_library(fake_locator MODULE wine/fake_locator.cpp simulation/machine.cpp simulation/wmi.cpp)
set_target_properties(fake_locator PROPERTIES PREFIX "")
target_include_directories(fake_locator PRIVATE simulation)
target_link_libraries(fake_locator PRIVATE Qt5::Core oleaut32 uuid)
# COM looks up the entry points without the suffix of their calling convention.
target_link_options(fake_locator PRIVATE -Wl,--kill-at)
# The fakes load their Qt under another name: as Qt5Core.dll in system32 it would also be found by a tested program that
# finds none on Windows. Both names have the same length.
foreach(fake fake_tool fake_locator)
    add_custom_command(TARGET ${fake} POST_BUILD COMMAND sed -i "s/Qt5Core\\.dll/FakeQt5.dll/g" $<TARGET_FILE:${fake}>)
endforeach()
