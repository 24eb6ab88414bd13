# The editing and merging sheets' units of work and the report's undo history.
target_sources(brimvale-core PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/activitychange.cpp ${CMAKE_CURRENT_LIST_DIR}/activitychange.h
    ${CMAKE_CURRENT_LIST_DIR}/activityeditor.cpp ${CMAKE_CURRENT_LIST_DIR}/activityeditor.h
    ${CMAKE_CURRENT_LIST_DIR}/activitymerge.cpp ${CMAKE_CURRENT_LIST_DIR}/activitymerge.h
    ${CMAKE_CURRENT_LIST_DIR}/activitysnapshot.cpp ${CMAKE_CURRENT_LIST_DIR}/activitysnapshot.h
    ${CMAKE_CURRENT_LIST_DIR}/activityundohistory.cpp ${CMAKE_CURRENT_LIST_DIR}/activityundohistory.h)
