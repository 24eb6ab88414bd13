bv_add_test(NAME testreportwindow SOURCES testreportwindow.cpp LIBS brimvale-gui LABELS gui TZ Europe/Berlin)
