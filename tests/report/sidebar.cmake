bv_add_test(NAME testreportsidebaritemsmanager
    SOURCES testreportsidebaritemsmanager.cpp sidebarfixture.cpp sidebarfixture.h
    LIBS brimvale-core LABELS core TZ Europe/Berlin)
