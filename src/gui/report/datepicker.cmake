# The report's date controls: the date picker with its calendar pop-over, and the segmented range control.
target_sources(brimvale-gui PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/bvdatepicker.cpp ${CMAKE_CURRENT_LIST_DIR}/bvdatepicker.h
    ${CMAKE_CURRENT_LIST_DIR}/bvdatepickerpanelviewcontroller.cpp
    ${CMAKE_CURRENT_LIST_DIR}/bvdatepickerpanelviewcontroller.h
    ${CMAKE_CURRENT_LIST_DIR}/bvsegmentedcell.cpp ${CMAKE_CURRENT_LIST_DIR}/bvsegmentedcell.h)

qt_add_resources(brimvale-gui brimvale-datepicker-icons
    PREFIX /icons
    BASE ${CMAKE_CURRENT_LIST_DIR}/../resources
    FILES ${CMAKE_CURRENT_LIST_DIR}/../resources/calendar.svg)
