# The idle prompt and the taskbar attention, offscreen with the real attention rules and fakes.
bv_add_test(NAME testidleprompt SOURCES ${CMAKE_CURRENT_LIST_DIR}/testidleprompt.cpp LIBS brimvale-gui LABELS gui)
bv_add_test(NAME testattentionapp SOURCES ${CMAKE_CURRENT_LIST_DIR}/testattentionapp.cpp
    ${CMAKE_SOURCE_DIR}/tests/fakes/fakenotifier.h ${CMAKE_SOURCE_DIR}/tests/fakes/fakesessionevents.h
    LIBS brimvale-application LABELS gui)
