bv_add_test(NAME testreportchartdata SOURCES testreportchartdata.cpp LIBS brimvale-core LABELS core TZ Europe/Berlin)
bv_add_test(NAME testreportchartview SOURCES testreportchartview.cpp LIBS brimvale-gui LABELS gui TZ Europe/Berlin
    LOCALE en_US.UTF-8)
