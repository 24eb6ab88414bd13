bv_add_test(NAME testreportquery SOURCES testreportquery.cpp LIBS brimvale-core LABELS core TZ Europe/Berlin)
