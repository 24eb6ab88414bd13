bv_add_test(NAME testbvdatepicker SOURCES ${CMAKE_CURRENT_LIST_DIR}/testbvdatepicker.cpp LIBS brimvale-gui
    LABELS gui TZ Europe/Berlin LOCALE en_US.UTF-8)
bv_add_test(NAME testbvsegmentedcell SOURCES ${CMAKE_CURRENT_LIST_DIR}/testbvsegmentedcell.cpp LIBS brimvale-gui
    LABELS gui)
