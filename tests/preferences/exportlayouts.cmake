# The Export page: its widget-free rules, and the page driven as a user would.
bv_add_test(NAME testexportlayouteditor SOURCES testexportlayouteditor.cpp LIBS brimvale-core LABELS core
    TZ Europe/Berlin LOCALE en_US.UTF-8)
bv_add_test(NAME testexportlayoutspage SOURCES testexportlayoutspage.cpp LIBS brimvale-gui LABELS gui
    TZ Europe/Berlin LOCALE en_US.UTF-8)
