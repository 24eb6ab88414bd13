# The report sidebar: its outline, cells and actions menu, with the ticked and unticked images.
target_sources(brimvale-gui PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/bvoutlineview.cpp ${CMAKE_CURRENT_LIST_DIR}/bvoutlineview.h
    ${CMAKE_CURRENT_LIST_DIR}/bvsidebaroutlineview.cpp ${CMAKE_CURRENT_LIST_DIR}/bvsidebaroutlineview.h
    ${CMAKE_CURRENT_LIST_DIR}/bvreportsidebarcellformatter.cpp ${CMAKE_CURRENT_LIST_DIR}/bvreportsidebarcellformatter.h
    ${CMAKE_CURRENT_LIST_DIR}/bvreportsidebarcellview.cpp ${CMAKE_CURRENT_LIST_DIR}/bvreportsidebarcellview.h
    ${CMAKE_CURRENT_LIST_DIR}/reportsidebarlionview.cpp ${CMAKE_CURRENT_LIST_DIR}/reportsidebarlionview.h)

qt_add_resources(brimvale-gui brimvale-report-sidebar-icons
    PREFIX /icons
    BASE ${CMAKE_CURRENT_LIST_DIR}/../resources
    FILES
        ${CMAKE_CURRENT_LIST_DIR}/../resources/section-active-1.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/section-inactive-1.svg)
