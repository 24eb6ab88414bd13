# The idle prompt and the taskbar attention, offscreen with the real attention rules and fakes.
bv_add_test(NAME testidleprompt SOURCES ${CMAKE_CURRENT_LIST_DIR}/testidleprompt.cpp LIBS brimvale-gui LABELS gui)
