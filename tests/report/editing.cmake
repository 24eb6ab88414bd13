# The editing and merging sheets: their units of work and the undo history, then the sheets offscreen.
bv_add_test(NAME testactivityediting SOURCES testactivityediting.cpp LIBS brimvale-core LABELS core TZ Europe/Berlin)
bv_add_test(NAME testeditingsheets SOURCES testeditingsheets.cpp LIBS brimvale-gui LABELS gui TZ Europe/Berlin
    LOCALE en_US.UTF-8)
bv_add_test(NAME testreportediting SOURCES testreportediting.cpp LIBS brimvale-gui LABELS gui TZ Europe/Berlin)
