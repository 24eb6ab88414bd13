find_package(Qt6 REQUIRED COMPONENTS Network)
bv_add_test(NAME testpreferenceswindow SOURCES testpreferenceswindow.cpp ../fakes/fakesyncbackend.cpp
    ../fakes/fakesyncbackend.h LIBS brimvale-application Qt6::Network LABELS gui TZ Europe/Berlin)
bv_add_test(NAME testpreferencescommand SOURCES testpreferencescommand.cpp LIBS brimvale-cli brimvale-test-app
    LABELS cli BUS)
