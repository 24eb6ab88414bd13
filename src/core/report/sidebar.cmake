# The report sidebar's lists and their outline model.
target_sources(brimvale-core PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/reportsidebaritem.h
    ${CMAKE_CURRENT_LIST_DIR}/reportsidebaritemsmanager.cpp ${CMAKE_CURRENT_LIST_DIR}/reportsidebaritemsmanager.h
    ${CMAKE_CURRENT_LIST_DIR}/reportsidebaroutlinemodel.cpp ${CMAKE_CURRENT_LIST_DIR}/reportsidebaroutlinemodel.h)
