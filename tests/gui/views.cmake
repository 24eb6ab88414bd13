bv_add_test(NAME testbvmainwindowstatusbarview SOURCES testbvmainwindowstatusbarview.cpp LIBS brimvale-gui
    LABELS gui)
