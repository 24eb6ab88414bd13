# The edit and merge sheets over the report.
target_sources(brimvale-gui PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/bvsheetkeys.cpp ${CMAKE_CURRENT_LIST_DIR}/bvsheetkeys.h
    ${CMAKE_CURRENT_LIST_DIR}/editactivitywindowcontroller.cpp ${CMAKE_CURRENT_LIST_DIR}/editactivitywindowcontroller.h
    ${CMAKE_CURRENT_LIST_DIR}/mergeactivitieswindowcontroller.cpp
    ${CMAKE_CURRENT_LIST_DIR}/mergeactivitieswindowcontroller.h)
target_sources(brimvale-gui PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/reporteditingcontroller.cpp ${CMAKE_CURRENT_LIST_DIR}/reporteditingcontroller.h)
