bv_add_test(NAME testreportsidebaritemsmanager
    SOURCES testreportsidebaritemsmanager.cpp sidebarfixture.cpp sidebarfixture.h
    LIBS brimvale-core LABELS core TZ Europe/Berlin)
bv_add_test(NAME testreportsidebarlionview
    SOURCES testreportsidebarlionview.cpp sidebarfixture.cpp sidebarfixture.h
    LIBS brimvale-gui LABELS gui TZ Europe/Berlin)
