bv_add_test(NAME testreportchartdata SOURCES testreportchartdata.cpp LIBS brimvale-core LABELS core TZ Europe/Berlin)
