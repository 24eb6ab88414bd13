# The idle prompt and the taskbar attention, offscreen with the real attention rules and fakes.
bv_add_test(NAME testidleprompt SOURCES ${CMAKE_CURRENT_LIST_DIR}/testidleprompt.cpp LIBS brimvale-gui LABELS gui)
bv_add_test(NAME testattentionapp SOURCES ${CMAKE_CURRENT_LIST_DIR}/testattentionapp.cpp
    ${CMAKE_SOURCE_DIR}/tests/fakes/fakenotifier.h ${CMAKE_SOURCE_DIR}/tests/fakes/fakesessionevents.h
    LIBS brimvale-application LABELS gui)
# The urgency hint needs a window system that keeps it: Xvfb.
if(TARGET PkgConfig::XCB_IDLE)
    bv_add_test(NAME testdockattention SOURCES ${CMAKE_CURRENT_LIST_DIR}/testdockattention.cpp
        LIBS brimvale-gui PkgConfig::XCB_IDLE LABELS gui E2E)
endif()
