bv_add_test(NAME testshortcutrecorder SOURCES testshortcutrecorder.cpp LIBS brimvale-gui LABELS preferences)
