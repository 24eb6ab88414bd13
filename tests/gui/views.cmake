bv_add_test(NAME testbvmainwindowstatusbarview SOURCES testbvmainwindowstatusbarview.cpp LIBS brimvale-gui
    LABELS gui)
bv_add_test(NAME testactivitytextview SOURCES testactivitytextview.cpp LIBS brimvale-gui LABELS gui)
bv_add_test(NAME testbvstatusbaritem SOURCES testbvstatusbaritem.cpp LIBS brimvale-gui LABELS gui)
bv_add_test(NAME testbvtaggedtextfieldcell SOURCES testbvtaggedtextfieldcell.cpp LIBS brimvale-gui LABELS gui)
bv_add_test(NAME testdesktopintegration SOURCES testdesktopintegration.cpp LIBS brimvale-gui LABELS gui)
target_compile_definitions(testdesktopintegration PRIVATE
    BRIMVALE_CMAKE_COMMAND="${CMAKE_COMMAND}" BRIMVALE_BINARY_DIR="${CMAKE_BINARY_DIR}")
bv_add_test(NAME testeditactivitystarttimewindowcontroller SOURCES testeditactivitystarttimewindowcontroller.cpp
    LIBS brimvale-gui LABELS gui TZ Europe/Berlin LOCALE en_US.UTF-8)
