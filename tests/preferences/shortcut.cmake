bv_add_test(NAME testshortcutrecorder SOURCES testshortcutrecorder.cpp LIBS brimvale-gui LABELS preferences)
bv_add_test(NAME testshortcutapp SOURCES testshortcutapp.cpp LIBS brimvale-application LABELS preferences)
